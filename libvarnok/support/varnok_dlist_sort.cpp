// The list's ordered operations: sorted insertion, filtering and the bottom-up merge sort, which
// relinks nodes between the list and a helper list.
#include "support/varnok_dlist_links.h"

using namespace varnok;

void *varnok_dlist_insert_sorted(varnok_Dlist *list, void *data, varnok_dlist_compare sorter)
{
    if (list == nullptr || data == nullptr)
        return nullptr;
    varnok_dlist_start(list);
    void *element = nullptr;
    do
        element = _varnok_dlist_mark_move(list, 1);
    while (element != nullptr && sorter(data, element) == 0);
    return varnok_dlist_insert(list, data, 0);
}

void varnok_dlist_unshift_sorted(varnok_Dlist *list, void *data, varnok_dlist_compare sorter)
{
    if (list->count == 0)
        varnok_dlist_unshift(list, data);
    else
        varnok_dlist_insert_sorted(list, data, sorter);
}

// Moves the node and gives its successor in source; the sentinel when it was the last.
static varnok_DL_node *move_on(varnok_Dlist *source, varnok_Dlist *dest, varnok_DL_node *node)
{
    varnok_DL_node *const next = node->next;
    varnok_dlist_move(source, dest, node, 1);
    return next;
}

int32_t _varnok_dlist_merge(varnok_Dlist *listsource, varnok_Dlist *listdest, uint32_t passcount,
                            varnok_dlist_compare compare)
{
    int32_t mergecount = 0;
    if (passcount == 0)
        passcount = 1;
    while (listsource->count != 0) {
        varnok_DL_node *l1head = first_node(listsource);
        varnok_DL_node *l2head = l1head;
        uint32_t l1count = 0;
        while (l1count < passcount && l2head != listsource->head) {
            l2head = l2head->next;
            ++l1count;
        }
        uint32_t l2count = l2head == listsource->head ? 0 : passcount;
        ++mergecount;
        while (l1count > 0 && l2count > 0) {
            ++mergecount;
            if (compare(l1head->data, l2head->data) <= 0) {
                l1head = move_on(listsource, listdest, l1head);
                --l1count;
            } else {
                l2head = move_on(listsource, listdest, l2head);
                l2count = l2head == listsource->head ? 0 : l2count - 1;
            }
        }
        for (; l1count > 0; --l1count)
            l1head = move_on(listsource, listdest, l1head);
        for (; l2count > 0 && l2head != listsource->head; --l2count)
            l2head = move_on(listsource, listdest, l2head);
    }
    return mergecount;
}

// The list takes over the chain that the last pass left in the helper list.
static void take_chain(varnok_Dlist *list, varnok_Dlist *from)
{
    list->marker = from->marker;
    list->count = from->count;
    list->data_size = from->data_size;
    list->del_func = from->del_func;
    list->headnode = from->headnode;
    list->head->next->prev = list->head;
    list->head->prev->next = list->head;
    from->head->prev = from->head->next = nullptr;
    from->count = 0;
}

void varnok_dlist_sort_custom(varnok_Dlist *list, varnok_dlist_compare compare)
{
    if (list->count < 2)
        return;
    varnok_dlist_start(list);
    varnok_Dlist *const templist = varnok_dlist_new_with_delete(list->data_size, list->del_func);
    if (templist == nullptr)
        return;

    varnok_Dlist *source = list;
    varnok_Dlist *dest = templist;
    uint32_t passcount = 1;
    int32_t merged = 0;
    while ((merged = _varnok_dlist_merge(source, dest, passcount, compare)) != 0) {
        if (merged == 1)
            continue; // one run moved across: the source is empty now, and the next pass says so
        varnok_Dlist *const filled = dest;
        dest = source;
        source = filled;
        passcount *= 2;
    }
    if (list->count == 0)
        take_chain(list, templist);
    varnok_dlist_destroy(templist);
}

void varnok_dlist_filter_sort(varnok_Dlist *list, int32_t (*filter)(void *),
                              varnok_dlist_compare compare)
{
    if (list->count == 0)
        return;
    if (filter != nullptr) {
        varnok_DL_node *next = nullptr;
        for (varnok_DL_node *node = first_node(list); node != list->head; node = next) {
            next = node->next;
            if (filter(node->data) != 0)
                continue;
            void *const data = _varnok_dlist_remove(list, node, 0);
            if (data != nullptr)
                list->del_func(data);
        }
    }
    varnok_dlist_sort_custom(list, compare);
}
