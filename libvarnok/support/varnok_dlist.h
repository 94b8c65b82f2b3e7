// varnok_dlist.h - a circular doubly linked list of untyped elements with a sentinel and one
// cursor, the marker. The library's only container.
//
// The list owns its elements: it releases them through del_func. It copies no element and never
// tests its list argument for null, except where a function says so. A direction is forward
// (towards next) when it is nonzero, backward when it is zero. An empty list's sentinel links are
// null (a new list, or one whose last element was moved away) or designate the sentinel itself;
// both forms mean the same.
//
// Iteration: varnok_dlist_start, then _varnok_dlist_mark_move forward until marker equals head.
#pragma once

#include "records/varnok_export.h"

#include <cstddef>
#include <cstdint>

extern "C" {

typedef struct varnok_dl_node {
    struct varnok_dl_node *prev;
    struct varnok_dl_node *next;
    void *data; // null in the sentinel only
} varnok_DL_node;

typedef struct varnok_dlist {
    varnok_DL_node *marker; // null in a new list, else an element or the sentinel
    uint64_t count;
    size_t data_size; // recorded, never used to copy
    void (*del_func)(void *);
    varnok_DL_node headnode; // the sentinel
    varnok_DL_node *head;    // always &headnode, so a header is never copied
} varnok_Dlist;

typedef int32_t (*varnok_dlist_compare)(void *, void *);

// Null when the header cannot be allocated. The first takes free as its del_func.
VARNOK_PRIVATE varnok_Dlist *varnok_dlist_new(size_t datasize);
VARNOK_PRIVATE varnok_Dlist *varnok_dlist_new_with_delete(size_t datasize,
                                                          void (*del_func)(void *));

// Releases every element and the list; nothing for null.
VARNOK_PRIVATE void varnok_dlist_destroy(varnok_Dlist *list);

// The element under the marker, or null.
VARNOK_PRIVATE void *varnok_dlist_mark(varnok_Dlist *list);

// Both put the marker on the sentinel: a step forward then reaches the first element, backward the
// last.
VARNOK_PRIVATE void varnok_dlist_start(varnok_Dlist *list);
VARNOK_PRIVATE void varnok_dlist_end(varnok_Dlist *list);

// Steps; the element stepped to, or null (on the sentinel too).
VARNOK_PRIVATE void *_varnok_dlist_mark_move(varnok_Dlist *list, int32_t direction);

// Inserts after (forward) or before (backward) the marker, which then stands on the new node. Null
// when an argument is null or the node cannot be allocated.
VARNOK_PRIVATE void *varnok_dlist_insert(varnok_Dlist *list, void *data, int32_t direction);
VARNOK_PRIVATE varnok_DL_node *
_varnok_dlist_insert_dlnode(varnok_Dlist *list, varnok_DL_node *new_node, int32_t direction);

// Takes a node out and hands its element back. The marker leaves it in the direction given.
VARNOK_PRIVATE void *_varnok_dlist_remove(varnok_Dlist *list, varnok_DL_node *killme,
                                          int32_t direction);

// Releases the element under the marker, which moves on in the direction given.
VARNOK_PRIVATE void varnok_dlist_delete(varnok_Dlist *list, int32_t direction);

// Takes target out of source and links it at dest's marker; nothing for null or source's sentinel.
VARNOK_PRIVATE void varnok_dlist_move(varnok_Dlist *source, varnok_Dlist *dest,
                                      varnok_DL_node *target, int32_t direction);

// Both ends. A failed push or unshift shows in count only.
VARNOK_PRIVATE void varnok_dlist_push(varnok_Dlist *list, void *data);
VARNOK_PRIVATE void varnok_dlist_unshift(varnok_Dlist *list, void *data);
VARNOK_PRIVATE void *varnok_dlist_pop(varnok_Dlist *list);
VARNOK_PRIVATE void *varnok_dlist_shift(varnok_Dlist *list);

// The first element for which comp(target, element) is nonzero. The marker stays.
VARNOK_PRIVATE void *varnok_dlist_find_custom(varnok_Dlist *list, void *target,
                                              varnok_dlist_compare comp);

// Calls node_operation on every element, first to last. The marker stays.
VARNOK_PRIVATE void varnok_dlist_transform(varnok_Dlist *list, void (*node_operation)(void *));

// Ordered insertion before the first element for which sorter(new, element) is nonzero, else at the
// end. Null, with nothing done, when list or data is null.
VARNOK_PRIVATE void *varnok_dlist_insert_sorted(varnok_Dlist *list, void *data,
                                                varnok_dlist_compare sorter);
VARNOK_PRIVATE void varnok_dlist_unshift_sorted(varnok_Dlist *list, void *data,
                                                varnok_dlist_compare sorter);

// One merge pass over runs of passcount elements (0 counts as 1): moves all of listsource to
// listdest. 0 for an empty source, 1 when it was a single run, 2 or more when runs were merged.
VARNOK_PRIVATE int32_t _varnok_dlist_merge(varnok_Dlist *listsource, varnok_Dlist *listdest,
                                           uint32_t passcount, varnok_dlist_compare compare);

// Stable ascending sort: a positive compare(a, b) puts a after b. Leaves the marker on the last
// element; leaves the list unsorted when its helper list cannot be allocated.
VARNOK_PRIVATE void varnok_dlist_sort_custom(varnok_Dlist *list, varnok_dlist_compare compare);

// Releases the elements for which filter (which may be null) gives 0, then sorts.
VARNOK_PRIVATE void varnok_dlist_filter_sort(varnok_Dlist *list, int32_t (*filter)(void *),
                                             varnok_dlist_compare compare);

// Exchanges the elements of two nodes.
VARNOK_PRIVATE void _varnok_dlist_swap(varnok_Dlist *list, varnok_DL_node *a, varnok_DL_node *b);
}
