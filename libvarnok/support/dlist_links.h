// dlist_links.h - how the list's nodes hang together, for the list's own sources.
#pragma once

#include "varnok_dlist.h"

namespace varnok
{

// The first element's node, or the sentinel of an empty list of either form.
inline varnok_DL_node *first_node(varnok_Dlist *list)
{
    return list->head->next == nullptr ? list->head : list->head->next;
}

// Links a node after (forward) or before the marker, which must not be null, and puts the marker on
// it.
void link_at_marker(varnok_Dlist *list, varnok_DL_node *node, bool forward);

// Moves the marker off a node that is about to go.
void leave_node(varnok_Dlist *list, varnok_DL_node *node, bool forward);

// Joins a node's neighbours. The last one out leaves the sentinel linked to itself.
void unlink_node(varnok_Dlist *list, varnok_DL_node *node);

} // namespace varnok
