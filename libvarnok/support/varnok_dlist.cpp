#include "support/varnok_dlist.h"

#include "support/varnok_dlist_links.h"

#include <cstdlib>

namespace
{

// Links a node after (forward) or before the marker and puts the marker on it.
void link_at_marker(varnok_Dlist *list, varnok_DL_node *node, bool forward)
{
    varnok_DL_node *const head = list->head;
    ++list->count;
    if (head->next == nullptr) {
        head->prev = head->next = node;
        node->prev = node->next = head;
    } else {
        varnok_DL_node *const before = forward ? list->marker : list->marker->prev;
        varnok_DL_node *const after = before->next;
        node->prev = before;
        node->next = after;
        before->next = node;
        after->prev = node;
    }
    list->marker = node;
}

// Moves the marker off a node that is about to go.
void leave_node(varnok_Dlist *list, varnok_DL_node *node, bool forward)
{
    varnok_DL_node *const neighbour = forward ? node->next : node->prev;
    if (list->marker == node && neighbour != nullptr)
        list->marker = neighbour;
}

// Joins a node's neighbours. The last one out leaves the sentinel linked to itself.
void unlink_node(varnok_Dlist *list, varnok_DL_node *node)
{
    node->prev->next = node->next;
    node->next->prev = node->prev;
    --list->count;
}

// An insertion into a list that nobody has walked yet starts at the sentinel.
void place_marker(varnok_Dlist *list)
{
    if (list->marker == nullptr)
        list->marker = list->head;
}

} // namespace

using varnok::first_node;

varnok_Dlist *varnok_dlist_new(size_t datasize)
{
    return varnok_dlist_new_with_delete(datasize, free);
}

varnok_Dlist *varnok_dlist_new_with_delete(size_t datasize, void (*del_func)(void *))
{
    auto *list = static_cast<varnok_Dlist *>(calloc(1, sizeof(varnok_Dlist)));
    if (list == nullptr)
        return nullptr;
    list->data_size = datasize;
    list->del_func = del_func;
    list->head = &list->headnode;
    return list;
}

void varnok_dlist_destroy(varnok_Dlist *list)
{
    if (list == nullptr)
        return;
    varnok_dlist_start(list);
    _varnok_dlist_mark_move(list, 1);
    while (list->marker->data != nullptr)
        varnok_dlist_delete(list, 1);
    free(list);
}

void *varnok_dlist_mark(varnok_Dlist *list)
{
    return list->marker == nullptr ? nullptr : list->marker->data;
}

void varnok_dlist_start(varnok_Dlist *list) { list->marker = list->head; }

void varnok_dlist_end(varnok_Dlist *list) { list->marker = list->head; }

void *_varnok_dlist_mark_move(varnok_Dlist *list, int32_t direction)
{
    if (list->marker == nullptr)
        return nullptr;
    varnok_DL_node *const to = direction != 0 ? list->marker->next : list->marker->prev;
    if (to == nullptr)
        return nullptr;
    list->marker = to;
    return to->data;
}

void *varnok_dlist_insert(varnok_Dlist *list, void *data, int32_t direction)
{
    if (list == nullptr || data == nullptr)
        return nullptr;
    place_marker(list);
    auto *node = static_cast<varnok_DL_node *>(calloc(1, sizeof(varnok_DL_node)));
    if (node == nullptr)
        return nullptr;
    node->data = data;
    link_at_marker(list, node, direction != 0);
    return data;
}

varnok_DL_node *_varnok_dlist_insert_dlnode(varnok_Dlist *list, varnok_DL_node *new_node,
                                            int32_t direction)
{
    if (list == nullptr || new_node == nullptr)
        return nullptr;
    place_marker(list);
    link_at_marker(list, new_node, direction != 0);
    return new_node;
}

void *_varnok_dlist_remove(varnok_Dlist *list, varnok_DL_node *killme, int32_t direction)
{
    if (killme == nullptr)
        return nullptr;
    leave_node(list, killme, direction != 0);
    unlink_node(list, killme);
    void *const data = killme->data;
    free(killme);
    return data;
}

void varnok_dlist_delete(varnok_Dlist *list, int32_t direction)
{
    varnok_DL_node *const node = list->marker;
    if (varnok_dlist_mark(list) == nullptr)
        return;
    leave_node(list, node, direction != 0);
    unlink_node(list, node);
    list->del_func(node->data);
    free(node);
}

void varnok_dlist_move(varnok_Dlist *source, varnok_Dlist *dest, varnok_DL_node *target,
                       int32_t direction)
{
    if (target == nullptr || target == source->head)
        return;
    leave_node(source, target, direction != 0);
    unlink_node(source, target);
    if (source->count == 0)
        source->head->prev = source->head->next = nullptr;
    target->prev = target->next = nullptr;
    _varnok_dlist_insert_dlnode(dest, target, direction);
}

void varnok_dlist_push(varnok_Dlist *list, void *data)
{
    if (list->head->prev != nullptr)
        list->marker = list->head->prev;
    varnok_dlist_insert(list, data, 1);
}

void varnok_dlist_unshift(varnok_Dlist *list, void *data)
{
    if (list->head->next != nullptr)
        list->marker = list->head->next;
    varnok_dlist_insert(list, data, 0);
}

void *varnok_dlist_pop(varnok_Dlist *list)
{
    return list->count == 0 ? nullptr : _varnok_dlist_remove(list, list->head->prev, 0);
}

void *varnok_dlist_shift(varnok_Dlist *list)
{
    return list->count == 0 ? nullptr : _varnok_dlist_remove(list, list->head->next, 1);
}

void *varnok_dlist_find_custom(varnok_Dlist *list, void *target, varnok_dlist_compare comp)
{
    for (varnok_DL_node *node = first_node(list); node != list->head; node = node->next)
        if (comp(target, node->data) != 0)
            return node->data;
    return nullptr;
}

void varnok_dlist_transform(varnok_Dlist *list, void (*node_operation)(void *))
{
    for (varnok_DL_node *node = first_node(list); node != list->head; node = node->next)
        node_operation(node->data);
}

void _varnok_dlist_swap(varnok_Dlist *, varnok_DL_node *a, varnok_DL_node *b)
{
    void *const data = a->data;
    a->data = b->data;
    b->data = data;
}
