// The list against a plain vector: every operation, both empty forms, both directions.
#include "varnok_dlist.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <vector>

namespace
{

int released = 0;

void release(void *element)
{
    ++released;
    delete static_cast<int *>(element);
}

int value(void *element) { return *static_cast<int *>(element); }

// The elements forward; checks the chain in both directions, the count and the cursor on the way.
std::vector<int> contents(varnok_Dlist *list)
{
    std::vector<int> forward;
    std::vector<int> backward;
    bool marker_found = list->marker == nullptr || list->marker == list->head;
    EXPECT_EQ(list->head, &list->headnode);
    EXPECT_EQ(list->head->data, nullptr);
    EXPECT_EQ(list->head->next == nullptr, list->head->prev == nullptr);
    if (list->head->next != nullptr) {
        for (varnok_DL_node *n = list->head->next; n != list->head; n = n->next) {
            forward.push_back(value(n->data));
            marker_found = marker_found || n == list->marker;
        }
        for (varnok_DL_node *n = list->head->prev; n != list->head; n = n->prev)
            backward.insert(backward.begin(), value(n->data));
    }
    EXPECT_EQ(forward, backward);
    EXPECT_EQ(list->count, forward.size());
    EXPECT_TRUE(marker_found);
    return forward;
}

using ints = std::vector<int>;

struct Dlist : testing::Test {
    varnok_Dlist *list = varnok_dlist_new_with_delete(sizeof(int), release);

    Dlist() { released = 0; }
    ~Dlist() override { varnok_dlist_destroy(list); }

    void push(std::initializer_list<int> values)
    {
        for (int v : values)
            varnok_dlist_push(list, new int(v));
    }

    int marked() { return varnok_dlist_mark(list) == nullptr ? -1 : value(varnok_dlist_mark(list)); }
};

int32_t ascending(void *a, void *b) { return value(a) / 10 - value(b) / 10; }
int32_t before(void *a, void *b) { return value(a) / 10 < value(b) / 10; }
int32_t is_even(void *a) { return value(a) % 2 == 0; }

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

TEST_F(Dlist, InsertionFollowsTheCursor)
{
    push({1, 2});
    varnok_DL_node *const cursor = list->marker;
    EXPECT_EQ(varnok_dlist_insert(list, nullptr, 1), nullptr);
    EXPECT_EQ(varnok_dlist_insert_sorted(nullptr, this, before), nullptr);
    EXPECT_EQ(list->marker, cursor);
    varnok_dlist_start(list);
    for (int v : {3, 4, 5})
        varnok_dlist_insert(list, new int(v), 7);
    EXPECT_EQ(contents(list), (ints{3, 4, 5, 1, 2}));
    varnok_dlist_start(list);
    for (int v : {6, 7, 8})
        varnok_dlist_insert(list, new int(v), 0);
    EXPECT_EQ(contents(list), (ints{3, 4, 5, 1, 2, 8, 7, 6}));
    EXPECT_EQ(marked(), 8);
    varnok_dlist_unshift(list, new int(9));
    EXPECT_EQ(contents(list).front(), 9);
    EXPECT_EQ(marked(), 9);
}

TEST_F(Dlist, DeletionMovesTheCursorOn)
{
    push({1, 2, 3});
    varnok_dlist_delete(list, 1);
    EXPECT_EQ(list->marker, list->head) << "the last element's successor is the sentinel";
    varnok_dlist_delete(list, 1);
    EXPECT_EQ(released, 1);
    _varnok_dlist_mark_move(list, 1);
    varnok_dlist_delete(list, 1);
    EXPECT_EQ(marked(), 2);
    varnok_dlist_delete(list, 0);
    EXPECT_EQ(list->head->next, list->head) << "linked to itself";
    EXPECT_EQ(contents(list), ints{});
    EXPECT_EQ(varnok_dlist_shift(list), nullptr);
    push({4});
    EXPECT_EQ(contents(list), ints{4});
}

TEST_F(Dlist, BothEndsHandTheElementBack)
{
    push({1, 2, 3});
    int *const last = static_cast<int *>(varnok_dlist_pop(list));
    int *const first = static_cast<int *>(varnok_dlist_shift(list));
    EXPECT_EQ(*last * 10 + *first, 31);
    EXPECT_EQ(marked(), 2) << "the cursor left the popped element backward";
    delete last;
    delete first;
    EXPECT_EQ(released, 0);
}

TEST_F(Dlist, MovingTheOnlyElementLeavesANewList)
{
    varnok_Dlist *const dest = varnok_dlist_new_with_delete(sizeof(int), release);
    push({1});
    varnok_dlist_move(list, dest, list->head, 1);
    varnok_dlist_move(list, dest, nullptr, 1);
    EXPECT_EQ(contents(dest), ints{});
    varnok_dlist_move(list, dest, list->head->next, 1);
    EXPECT_EQ(list->head->next, nullptr);
    EXPECT_EQ(contents(list), ints{});
    push({2, 3});
    varnok_dlist_move(list, dest, list->head->prev, 0);
    EXPECT_EQ(contents(dest), (ints{3, 1}));
    EXPECT_EQ(contents(list), ints{2});
    EXPECT_EQ(*static_cast<int *>(dest->marker->data), 3);
    varnok_dlist_destroy(dest);
    EXPECT_EQ(released, 2);
}

TEST_F(Dlist, SearchAndTransformLeaveTheCursor)
{
    const auto same = [](void *a, void *b) -> int32_t { return value(a) == value(b); };
    const auto bump = [](void *a) { ++*static_cast<int *>(a); };
    int wanted = 3;
    EXPECT_EQ(varnok_dlist_find_custom(list, &wanted, same), nullptr);
    push({1, 2});
    varnok_dlist_transform(list, bump);
    EXPECT_EQ(contents(list), (ints{2, 3}));
    EXPECT_EQ(varnok_dlist_find_custom(list, &wanted, same), list->head->prev->data);
    _varnok_dlist_swap(list, list->head->next, list->head->prev);
    EXPECT_EQ(contents(list), (ints{3, 2}));
    EXPECT_EQ(marked(), 2);
}

TEST_F(Dlist, SortedInsertionKeepsEqualsInOrder)
{
    for (int v : {50, 10, 51, 30, 11, 52})
        varnok_dlist_unshift_sorted(list, new int(v), before);
    EXPECT_EQ(contents(list), (ints{10, 11, 30, 50, 51, 52}));
    EXPECT_EQ(marked(), 52);
}

TEST_F(Dlist, MergeCountsRunsAndComparisons)
{
    struct {
        ints source;
        uint32_t passcount;
        int32_t result;
        ints merged;
    } const cases[] = {
        {{}, 1, 0, {}},
        {{1}, 1, 1, {1}},
        {{20, 10}, 1, 2, {10, 20}},
        {{20, 10, 30}, 1, 3, {10, 20, 30}},
        {{10, 30, 20, 40}, 2, 4, {10, 20, 30, 40}},
        {{30, 40, 10}, 2, 2, {10, 30, 40}},
        {{20, 10}, 0, 2, {10, 20}},
        {{10, 20}, 9, 1, {10, 20}},
    };
    for (const auto &c : cases) {
        varnok_Dlist *const source = varnok_dlist_new(sizeof(int));
        varnok_Dlist *const dest = varnok_dlist_new_with_delete(sizeof(int), release);
        for (int v : c.source)
            varnok_dlist_push(source, new int(v));
        EXPECT_EQ(_varnok_dlist_merge(source, dest, c.passcount, ascending), c.result);
        EXPECT_EQ(contents(source), ints{});
        EXPECT_EQ(contents(dest), c.merged);
        varnok_dlist_destroy(source);
        varnok_dlist_destroy(dest);
    }
}

// Every length, so that the chain ends in the list itself and in the helper list.
TEST_F(Dlist, SortIsStable)
{
    std::mt19937 random(42);
    for (size_t size = 0; size < 70; ++size) {
        ints model(size);
        for (int &v : model) {
            v = static_cast<int>(random() % 200);
            varnok_dlist_push(list, new int(v));
        }
        varnok_DL_node *const cursor = list->marker;
        varnok_dlist_sort_custom(list, ascending);
        if (size < 2)
            EXPECT_EQ(list->marker, cursor);
        std::stable_sort(model.begin(), model.end(), [](int a, int b) { return a / 10 < b / 10; });
        EXPECT_EQ(contents(list), model);
        if (size >= 2)
            EXPECT_EQ(list->marker, list->head->prev);
        EXPECT_EQ(list->del_func, release);
        varnok_dlist_filter_sort(
            list, [](void *) { return 0; }, ascending);
        EXPECT_EQ(contents(list), ints{});
    }
    EXPECT_EQ(released, 69 * 70 / 2);
    push({30, 11, 20, 10});
    varnok_dlist_filter_sort(list, is_even, ascending);
    EXPECT_EQ(contents(list), (ints{10, 20, 30}));
}

} // namespace
