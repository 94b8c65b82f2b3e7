#include "api/exported_call.h"

varnok_priv_db *varnok::exported_call::port() const
{
    varnok_priv_db *const pdb = varnok_get_pdb_from_user_handle(number_);
    if (pdb == nullptr)
        error("): get pdb failed.");
    return pdb;
}

varnok::list_verdict varnok::exported_call::check_count(uint32_t entries, uint32_t *count,
                                                        const list_texts &texts) const
{
    if (entries == 0) {
        *count = 0;
        return {false, fails(VARNOK_STATUS_SUCCESS, texts.empty)};
    }
    if (entries > *count) {
        *count = entries;
        return {false, fails(VARNOK_STATUS_INSUFFICIENT_BUFFER, texts.too_short)};
    }
    return {true, VARNOK_STATUS_SUCCESS};
}
