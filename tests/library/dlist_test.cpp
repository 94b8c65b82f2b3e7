// The list against a plain vector: every operation, both empty forms, both directions.
#include "platform.h"
#include "support/varnok_dlist.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <tuple>
#include <vector>

namespace
{

using ints = std::vector<int>;
using state = std::pair<ints, int>; // the elements, and the one at the cursor (-1: none)

int released = 0;

void release(void *element)
{
    ++released;
    delete static_cast<int *>(element);
}

int value(void *element) { return *static_cast<int *>(element); }

// The elements; checks the links both ways, the count and the cursor on the way.
ints contents(varnok_Dlist *list)
{
    ints found;
    varnok_DL_node *const head = list->head, *last = head;
    bool marker_found = list->marker == nullptr || list->marker == head;
    EXPECT_EQ(head, &list->headnode);
    EXPECT_EQ(head->data, nullptr);
    for (varnok_DL_node *n = head->next; n != nullptr && n != head; last = n, n = n->next) {
        found.push_back(value(n->data));
        marker_found = marker_found || n == list->marker;
        EXPECT_EQ(n->prev, last);
    }
    EXPECT_EQ(head->prev, head->next == nullptr ? nullptr : last);
    EXPECT_EQ(list->count, found.size());
    EXPECT_TRUE(marker_found);
    return found;
}

struct Dlist : testing::Test {
    varnok_Dlist *list = varnok_dlist_new_with_delete(sizeof(int), release);

    Dlist() { released = 0; }
    ~Dlist() override { varnok_dlist_destroy(list); }

    static void push(varnok_Dlist *to, const ints &values)
    {
        for (int v : values)
            varnok_dlist_push(to, new int(v));
    }

    int marked() { return varnok_dlist_mark(list) == nullptr ? -1 : value(varnok_dlist_mark(list)); }
    state now() { return {contents(list), marked()}; }
};

int32_t ascending(void *a, void *b) { return value(a) / 10 - value(b) / 10; }
int32_t before(void *a, void *b) { return value(a) / 10 < value(b) / 10; }
int32_t is_even(void *a) { return value(a) % 2 == 0; }
int32_t is_none(void *) { return 0; }

TEST_F(Dlist, ANewListHasNoCursor)
{
    EXPECT_EQ(_varnok_dlist_mark_move(list, 1), nullptr);
    EXPECT_EQ(list->marker, nullptr);
    varnok_dlist_end(list);
    EXPECT_EQ(_varnok_dlist_mark_move(list, 0), nullptr);
    EXPECT_EQ(list->marker, list->head);
    varnok_dlist_delete(list, 1);
    EXPECT_EQ(varnok_dlist_pop(list), nullptr);
    EXPECT_EQ(varnok_dlist_shift(list), nullptr);
    EXPECT_EQ(released, 0);
    varnok_dlist_destroy(nullptr);
}

TEST_F(Dlist, NothingAsAnArgument)
{
    EXPECT_EQ(marked(), -1);
    push(list, {20, 10});
    EXPECT_EQ(varnok_dlist_insert(nullptr, this, 1), nullptr);
    EXPECT_EQ(varnok_dlist_insert(list, nullptr, 1), nullptr);
    EXPECT_EQ(varnok_dlist_insert_sorted(nullptr, this, before), nullptr);
    EXPECT_EQ(varnok_dlist_insert_sorted(list, nullptr, before), nullptr);
    EXPECT_EQ(_varnok_dlist_insert_dlnode(nullptr, list->head->next, 1), nullptr);
    EXPECT_EQ(_varnok_dlist_insert_dlnode(list, nullptr, 1), nullptr);
    EXPECT_EQ(_varnok_dlist_remove(list, nullptr, 1), nullptr);
    platform::reset();
    platform::fail_allocation(1);
    varnok_dlist_sort_custom(list, ascending);
    EXPECT_EQ(contents(list), (ints{20, 10})) << "without memory for the helper list";
    varnok_dlist_filter_sort(list, nullptr, ascending);
    EXPECT_EQ(contents(list), (ints{10, 20}));
}

TEST_F(Dlist, InsertionFollowsTheCursor)
{
    push(list, {1, 2});
    EXPECT_EQ(now(), (state{{1, 2}, 2}));
    const std::tuple<ints, int32_t, state> cases[] = {{{3, 4, 5}, 7, {{3, 4, 5, 1, 2}, 5}},
                                                      {{6, 7, 8}, 0, {{3, 4, 5, 1, 2, 8, 7, 6}, 8}}};
    for (const auto &[values, direction, expected] : cases) {
        varnok_dlist_start(list);
        for (int v : values)
            varnok_dlist_insert(list, new int(v), direction);
        EXPECT_EQ(now(), expected);
    }
    varnok_dlist_unshift(list, new int(9));
    EXPECT_EQ(now(), (state{{9, 3, 4, 5, 1, 2, 8, 7, 6}, 9}));
}

TEST_F(Dlist, RemovalMovesTheCursorOn)
{
    push(list, {0, 1, 2, 3, 4});
    const std::unique_ptr<int> last(static_cast<int *>(varnok_dlist_pop(list)));
    const std::unique_ptr<int> first(static_cast<int *>(varnok_dlist_shift(list)));
    EXPECT_EQ((ints{*first, *last, released}), (ints{0, 4, 0}));
    EXPECT_EQ(now(), (state{{1, 2, 3}, 3})) << "backward from the popped element";
    varnok_dlist_delete(list, 1);
    EXPECT_EQ(list->marker, list->head) << "the last element's successor is the sentinel";
    varnok_dlist_delete(list, 1);
    EXPECT_EQ(released, 1);
    _varnok_dlist_mark_move(list, 1);
    varnok_dlist_delete(list, 1);
    EXPECT_EQ(now(), (state{{2}, 2}));
    varnok_dlist_delete(list, 0);
    EXPECT_EQ(list->head->next, list->head) << "linked to itself";
    EXPECT_EQ(varnok_dlist_shift(list), nullptr);
    EXPECT_EQ(now(), (state{{}, -1}));
    push(list, {4});
    EXPECT_EQ(now(), (state{{4}, 4}));
}

TEST_F(Dlist, MovingTheOnlyElementLeavesANewList)
{
    varnok_Dlist *const dest = varnok_dlist_new_with_delete(sizeof(int), release);
    push(list, {1});
    varnok_dlist_move(list, dest, list->head, 1);
    varnok_dlist_move(list, dest, nullptr, 1);
    EXPECT_EQ(contents(dest), ints{});
    varnok_dlist_move(list, dest, list->head->next, 1);
    EXPECT_EQ(list->head->next, nullptr);
    push(list, {2, 3});
    varnok_dlist_move(list, dest, list->head->prev, 0);
    EXPECT_EQ(contents(dest), (ints{3, 1}));
    EXPECT_EQ(now(), (state{{2}, 2}));
    EXPECT_EQ(value(dest->marker->data), 3);
    varnok_dlist_destroy(dest);
    EXPECT_EQ(released, 2);
}

TEST_F(Dlist, SearchAndTransformLeaveTheCursor)
{
    const auto same = [](void *a, void *b) -> int32_t { return value(a) / 10 == value(b) / 10; };
    int wanted = 50;
    EXPECT_EQ(varnok_dlist_find_custom(list, &wanted, same), nullptr);
    for (int v : {50, 10, 51, 30, 11, 52})
        varnok_dlist_unshift_sorted(list, new int(v), before);
    EXPECT_EQ(now(), (state{{10, 11, 30, 50, 51, 52}, 52})) << "equals stay in order";
    varnok_dlist_transform(list, [](void *a) { ++*static_cast<int *>(a); });
    varnok_dlist_start(list);
    EXPECT_EQ(value(varnok_dlist_find_custom(list, &wanted, same)), 51);
    _varnok_dlist_swap(list, list->head->next, list->head->prev);
    EXPECT_EQ(now(), (state{{53, 12, 31, 51, 52, 11}, -1}));
}

TEST_F(Dlist, MergeCountsRunsAndComparisons)
{
    const std::tuple<ints, uint32_t, int32_t, ints> cases[] = {
        {{20, 10}, 1, 2, {10, 20}},         {{}, 1, 0, {}},
        {{20, 10}, 0, 2, {10, 20}},         {{1}, 1, 1, {1}},
        {{10, 20}, 9, 1, {10, 20}},         {{10, 30, 20, 40}, 2, 4, {10, 20, 30, 40}},
        {{30, 40, 10}, 2, 2, {10, 30, 40}}, {{20, 10, 30}, 1, 3, {10, 20, 30}},
    };
    for (const auto &[values, passcount, result, merged] : cases) {
        varnok_Dlist *const source = varnok_dlist_new(sizeof(int));
        push(source, values);
        EXPECT_EQ(_varnok_dlist_merge(source, list, passcount, ascending), result);
        EXPECT_EQ(contents(source), ints{});
        EXPECT_EQ(contents(list), merged);
        varnok_dlist_destroy(source);
        varnok_dlist_filter_sort(list, is_none, ascending);
    }
}

// Every length, so that the chain ends in the list itself and in the helper list.
TEST_F(Dlist, SortIsStable)
{
    std::mt19937 random(42);
    for (size_t size = 0; size < 70; ++size) {
        ints model(size);
        for (int &v : model)
            v = static_cast<int>(random() % 200);
        push(list, model);
        varnok_DL_node *const cursor = list->marker;
        varnok_dlist_sort_custom(list, ascending);
        std::stable_sort(model.begin(), model.end(), [](int a, int b) { return a / 10 < b / 10; });
        EXPECT_EQ(contents(list), model);
        EXPECT_EQ(list->marker, size < 2 ? cursor : list->head->prev);
        EXPECT_EQ(list->del_func, release);
        varnok_dlist_filter_sort(list, is_none, ascending);
        EXPECT_EQ(contents(list), ints{});
    }
    EXPECT_EQ(released, 69 * 70 / 2);
    push(list, {30, 11, 20, 10});
    varnok_dlist_filter_sort(list, is_even, ascending);
    EXPECT_EQ(contents(list), (ints{10, 20, 30}));
}

} // namespace
