// exported_call.h - an exported function under way. It knows the function's name and the number
// that the function was called with, a handle or an instance: every line of the function begins
// with both.
#pragma once

#include "api/mgmt_status.h"
#include "backend/families.h"
#include "core/varnok_instdb.h"
#include "support/varnok_log.h"

#include <cerrno>

namespace varnok
{

// The lines of a list that does not go into the caller's array.
struct list_texts {
    const char *empty;
    const char *too_short;
};

// Whether a list goes into the caller's array; if not, the status to return.
struct list_verdict {
    bool fits;
    uint32_t status;
};

class exported_call
{
  public:
    // Traces the entry.
    template <class... Parts>
    exported_call(const char *func, uint32_t number, Parts... entered)
        : func_(func), number_(number)
    {
        trace(entered...);
    }

    template <class... Parts>
    void trace(Parts... parts) const
    {
        line(VARNOK_DBG_TRACE, parts...);
    }

    template <class... Parts>
    void error(Parts... parts) const
    {
        line(VARNOK_DBG_ERROR, parts...);
    }

    // Writes the error line of a failure and gives its status.
    template <class... Parts>
    uint32_t fails(uint32_t status, Parts... parts) const
    {
        error(parts...);
        return status;
    }

    // As fails, for a request with the driver's status. The line names errno, too.
    uint32_t request_fails(const char *text, uint32_t stat) const
    {
        return fails(varnok_xlate_err(stat), text, dec(stat), " errno=", dec(errno));
    }

    // Traces the exit and gives the status back.
    uint32_t returns(uint32_t status) const
    {
        trace("): exiting, rval=", hex(status));
        return status;
    }

    // As returns, where a failure has had its line already, and no exit is traced after it.
    uint32_t ends(uint32_t status) const { return status == 0 ? returns(status) : status; }

    // The open port with this handle; null, with a line, when there is none.
    varnok_priv_db *port() const;

    // Compares a list with the caller's array. Stores the count that the caller needs. The array is
    // looked at last: a call that asks for the count may come without one.
    template <class Record>
    list_verdict check_list(uint32_t entries, uint32_t *count, Record *const *array,
                            const list_texts &texts) const
    {
        const list_verdict verdict = check_count(entries, count, texts);
        if (!verdict.fits || *array != nullptr)
            return verdict;
        return {false, fails(VARNOK_STATUS_INVALID_PARAMETER, "): invalid parameter.")};
    }

  private:
    template <class... Parts>
    void line(uint32_t bit, Parts... parts) const
    {
        if ((varnok_debug & bit) != 0) [[unlikely]]
            write_log_line(func_, {"(", dec(number_), parts...});
    }

    list_verdict check_count(uint32_t entries, uint32_t *count, const list_texts &texts) const;

    const char *func_;
    uint32_t number_;
};

} // namespace varnok
