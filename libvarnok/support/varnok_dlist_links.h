// dlist_links.h - how the list's nodes hang together, for the list's own sources.
#pragma once

#include "support/varnok_dlist.h"

namespace varnok
{

// The first element's node, or the sentinel of an empty list of either form.
inline varnok_DL_node *first_node(varnok_Dlist *list)
{
    return list->head->next == nullptr ? list->head : list->head->next;
}

} // namespace varnok
