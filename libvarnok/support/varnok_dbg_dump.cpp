// The log's hexadecimal table.
#include "support/errno_keeper.h"
#include "support/held_semaphore.h"
#include "support/varnok_dbg.h"

#include <cstring>

namespace
{

struct dump_layout {
    uint32_t wd_size;
    uint32_t bytes;
    uint32_t per_line;
    uint32_t rule;
    const char *header; // names every column by the offset of its element in the line
};

constexpr dump_layout layouts[] = {
    {8, 1, 16, 78,
     " 0    1    2    3    4    5    6    7    8    9    Ah   Bh   Ch   Dh   Eh   Fh"},
    {16, 2, 8, 54, "   0      2      4      6      8      Ah     Ch     Eh"},
    {32, 4, 4, 42, "       0          4          8          Ch"},
    {64, 8, 2, 35, "               0                  8"},
};

void put_repeated(char c, uint32_t times)
{
    for (; times > 0; --times)
        varnok_dbg_putc(c);
}

void put_rule(const dump_layout &layout)
{
    put_repeated('-', layout.rule);
    varnok_dbg_putc('\n');
}

uint32_t hex_digits(uint64_t value)
{
    uint32_t digits = 1;
    while ((value >>= 4) != 0)
        ++digits;
    return digits;
}

void put_table(const dump_layout &layout, const uint8_t *bytes, uint64_t count)
{
    varnok_dbg_puts(layout.header);
    varnok_dbg_putc('\n');
    put_rule(layout);
    for (uint64_t i = 1; i <= count; ++i, bytes += layout.bytes) {
        uint64_t value = 0;
        memcpy(&value, bytes, layout.bytes);
        put_repeated(' ', 2 * layout.bytes - hex_digits(value));
        varnok_dbg_output_number(value, 16);
        if (i % layout.per_line == 0)
            varnok_dbg_putc('\n');
        else
            put_repeated(' ', value > 9 ? 2 : 3);
    }
    if (count % layout.per_line != 0)
        varnok_dbg_putc('\n');
    put_rule(layout);
}

} // namespace

void varnok_dbg_dump(const char *string, const void *buffer, uint32_t wd_size, uint64_t count)
{
    const varnok::errno_keeper keeper;
    const varnok::held_semaphore lock(varnok_dbg_sem_id);
    if (string != nullptr && *string != '\0') {
        varnok_dbg_puts(string);
        varnok_dbg_putc('\n');
    }
    for (const dump_layout &layout : layouts)
        if (layout.wd_size == wd_size)
            put_table(layout, static_cast<const uint8_t *>(buffer), count);
    // The log file stays open: the next print closes it.
}
