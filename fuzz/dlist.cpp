// Any sequence of list operations, against a list that cannot be wrong: after each, both hold the
// same elements and stand on the same one.
#include "support/varnok_dlist.h"

#include "platform.h"

#include <algorithm>
#include <cstdlib>
#include <vector>

namespace
{

constexpr size_t most_elements = 40;

struct element {
    uint8_t key;
};

int released = 0;

void release(void *data)
{
    ++released;
    free(data);
}

uint8_t key_of(const void *data) { return static_cast<const element *>(data)->key; }

// The cursor is an element's index, the number of elements for the sentinel, or nowhere.
struct model {
    static constexpr size_t nowhere = SIZE_MAX;

    varnok_Dlist *list = varnok_dlist_new_with_delete(sizeof(element), release);
    std::vector<void *> elements{};
    size_t cursor = nowhere;
    bool linked = false; // the sentinel has neighbours, if only itself

    size_t end() const { return elements.size(); }
    void *at(size_t index) const { return index < end() ? elements[index] : nullptr; }

    // Where a step from there goes.
    size_t beside(size_t index, bool forward) const
    {
        const size_t places = end() + 1;
        return (index + (forward ? 1 : places - 1)) % places;
    }

    void insert(void *data, bool forward)
    {
        if (cursor == nowhere)
            cursor = end();
        if (forward)
            cursor = beside(cursor, true);
        elements.insert(elements.begin() + static_cast<ptrdiff_t>(cursor), data);
        linked = true;
    }

    // Takes the element out; the cursor leaves it first.
    void erase(size_t index, bool forward)
    {
        if (cursor == index)
            cursor = beside(index, forward);
        elements.erase(elements.begin() + static_cast<ptrdiff_t>(index));
        if (cursor != nowhere && cursor > index)
            cursor--;
    }

    varnok_DL_node *node(size_t index) const
    {
        varnok_DL_node *node = list->head;
        for (size_t i = 0; i <= index && index < end(); ++i)
            node = node->next;
        return node;
    }

    void check() const
    {
        REQUIRE(list->head == &list->headnode && list->headnode.data == nullptr);
        REQUIRE(list->count == end() && (list->headnode.next != nullptr) == linked);
        REQUIRE(list->marker == (cursor == nowhere ? nullptr : node(cursor)));
        REQUIRE(varnok_dlist_mark(list) == at(cursor));
        const varnok_DL_node *node = list->head;
        for (size_t i = 0; linked && i <= end(); ++i) {
            REQUIRE(node->next->prev == node);
            node = node->next;
            REQUIRE(node->data == at(i));
        }
        REQUIRE(!linked || node == list->head);
    }
};

int32_t same(void *target, void *data) { return key_of(target) == key_of(data) ? 1 : 0; }
int32_t goes_before(void *added, void *old) { return key_of(added) < key_of(old) ? 1 : 0; }
int32_t compare(void *a, void *b) { return key_of(a) - key_of(b); }
int32_t is_kept(void *data) { return key_of(data) % 3; }
void raise(void *data) { ++static_cast<element *>(data)->key; }

bool ascends(const void *a, const void *b) { return key_of(a) < key_of(b); }

void *new_element(uint8_t key)
{
    auto *made = static_cast<element *>(malloc(sizeof(element)));
    made->key = key;
    return made;
}

// ---- What an operation does to the model -------------------------------------------------------

void sort(model &m)
{
    std::stable_sort(m.elements.begin(), m.elements.end(), ascends);
    if (m.end() > 1)
        m.cursor = m.end() - 1;
}

void insert_sorted(model &m, void *data)
{
    const auto stop = std::find_if(m.elements.begin(), m.elements.end(),
                                   [data](void *old) { return goes_before(data, old) != 0; });
    m.cursor = static_cast<size_t>(stop - m.elements.begin());
    m.insert(data, false);
}

// How many elements go.
int filter_sort(model &m)
{
    const size_t before = m.end();
    for (size_t i = m.end(); i-- > 0;)
        if (is_kept(m.elements[i]) == 0)
            m.erase(i, false);
    sort(m);
    return static_cast<int>(before - m.end());
}

int32_t merge(model &from, model &to, size_t run)
{
    int32_t merged = 0;
    const std::vector<void *> taken = from.elements;
    for (size_t first = 0; first < taken.size(); first += 2 * run) {
        const size_t middle = std::min(first + run, taken.size());
        const size_t end = std::min(middle + run, taken.size());
        size_t a = first;
        size_t b = middle;
        ++merged;
        while (a < middle || b < end) {
            const bool both = a < middle && b < end;
            merged += both ? 1 : 0;
            const bool from_first = both ? compare(taken[a], taken[b]) <= 0 : a < middle;
            to.insert(taken[from_first ? a++ : b++], true);
        }
    }
    if (!taken.empty())
        from = {.list = from.list, .cursor = 0};
    return merged;
}

// ---- The operations -----------------------------------------------------------------------------

void *take_one(model &m, bool last)
{
    if (m.elements.empty())
        return nullptr;
    void *const data = last ? m.elements.back() : m.elements.front();
    m.erase(last ? m.end() - 1 : 0, !last);
    return data;
}

void operate_on_end(model &m, uint8_t operation, void *data)
{
    const bool last = operation % 2 == 0;
    if (data == nullptr) {
        void *const expected = take_one(m, last);
        void *const taken = last ? varnok_dlist_pop(m.list) : varnok_dlist_shift(m.list);
        REQUIRE(taken == expected);
        free(taken);
        return;
    }
    if (!m.elements.empty())
        m.cursor = last ? m.end() - 1 : 0;
    m.insert(data, last);
    (last ? varnok_dlist_push : varnok_dlist_unshift)(m.list, data);
}

void order(model &m, uint8_t operation, void *data)
{
    const int before = released;
    int dropped = 0;
    if (data != nullptr) {
        insert_sorted(m, data);
        if (operation % 2 == 0)
            REQUIRE(varnok_dlist_insert_sorted(m.list, data, goes_before) == data);
        else
            varnok_dlist_unshift_sorted(m.list, data, goes_before);
    } else if (operation % 2 == 0) {
        sort(m);
        varnok_dlist_sort_custom(m.list, compare);
    } else {
        dropped = filter_sort(m);
        varnok_dlist_filter_sort(m.list, is_kept, compare);
    }
    REQUIRE(released == before + dropped);
}

void insert_or_remove(model &m, uint8_t operation, void *data)
{
    const bool forward = operation % 2 == 0;
    if (data != nullptr) {
        m.insert(data, forward);
        REQUIRE(varnok_dlist_insert(m.list, data, forward ? 1 : 0) == data);
        return;
    }
    REQUIRE(varnok_dlist_insert(m.list, nullptr, 1) == nullptr);
    const int before = released;
    const bool there = m.at(m.cursor) != nullptr;
    if (there)
        m.erase(m.cursor, forward);
    varnok_dlist_delete(m.list, forward ? 1 : 0);
    REQUIRE(released == before + (there ? 1 : 0));
}

void walk(model &m, uint8_t operation)
{
    const bool forward = operation % 2 == 0;
    if (operation % 4 < 2) {
        m.cursor = m.end();
        (forward ? varnok_dlist_start : varnok_dlist_end)(m.list);
        return;
    }
    if (m.cursor != model::nowhere && m.linked)
        m.cursor = m.beside(m.cursor, forward);
    REQUIRE(_varnok_dlist_mark_move(m.list, forward ? 1 : 0) ==
            (m.linked ? m.at(m.cursor) : nullptr));
}

void look(model &m, uint8_t key)
{
    element wanted = {key};
    const auto found = std::find_if(m.elements.begin(), m.elements.end(),
                                    [&wanted](void *data) { return same(&wanted, data) != 0; });
    REQUIRE(varnok_dlist_find_custom(m.list, &wanted, same) ==
            (found == m.elements.end() ? nullptr : *found));
    std::vector<uint8_t> keys;
    std::transform(m.elements.begin(), m.elements.end(), std::back_inserter(keys), key_of);
    varnok_dlist_transform(m.list, raise);
    for (size_t i = 0; i < m.end(); ++i)
        REQUIRE(key_of(m.elements[i]) == static_cast<uint8_t>(keys[i] + 1));
}

void with_node(model &m, model &other, uint8_t operation, size_t index)
{
    const bool forward = operation % 2 == 0;
    varnok_DL_node *const node = m.node(index);
    model &to = operation % 4 < 2 ? m : other;
    if (node != m.list->head) {
        void *const data = m.at(index);
        m.erase(index, forward);
        m.linked = m.end() > 0;
        to.insert(data, forward);
    }
    varnok_dlist_move(m.list, to.list, node, forward ? 1 : 0);
}

void with_nodes(model &m, uint8_t operation, size_t a, size_t b)
{
    if (m.at(a) == nullptr || m.at(b) == nullptr)
        return;
    if (operation % 2 == 0) {
        _varnok_dlist_swap(m.list, m.node(a), m.node(b));
        std::swap(m.elements[a], m.elements[b]);
        return;
    }
    void *const data = m.elements[a];
    varnok_DL_node *const node = m.node(a);
    m.erase(a, operation % 4 == 1);
    REQUIRE(_varnok_dlist_remove(m.list, node, operation % 4 == 1 ? 1 : 0) == data);
    free(data);
}

void operate(model &m, model &other, bytes &input)
{
    const uint8_t operation = input.byte();
    const uint8_t key = input.byte();
    const bool adds = (operation & 0x40) != 0 && m.end() < most_elements;
    const size_t a = key % (most_elements + 1);
    switch (operation >> 2 & 7) {
    case 0:
    case 1:
        return insert_or_remove(m, operation, adds ? new_element(key) : nullptr);
    case 2:
        return operate_on_end(m, operation, adds ? new_element(key) : nullptr);
    case 3:
        return order(m, operation, adds ? new_element(key) : nullptr);
    case 4:
        return adds ? look(m, key) : walk(m, operation);
    case 5:
        return with_node(m, other, operation, a);
    case 6:
        return with_nodes(m, operation, a, input.byte());
    default: {
        const uint32_t run = 1 + key % 8;
        const int32_t merged = merge(m, other, run);
        REQUIRE(_varnok_dlist_merge(m.list, other.list, run, compare) == merged);
    }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    constexpr int most_operations = 300;
    bytes input(data, size);
    model lists[2];
    released = 0;
    for (int i = 0; i < most_operations && !input.empty(); ++i) {
        const bool second = (input.byte() & 1) != 0;
        operate(lists[second ? 1 : 0], lists[second ? 0 : 1], input);
        lists[0].check();
        lists[1].check();
    }
    for (const model &m : lists) {
        const int before = released;
        varnok_dlist_destroy(m.list);
        REQUIRE(released == before + static_cast<int>(m.end()));
    }
    return 0;
}
