#include "support/varnok_dbg.h"

#include "support/descriptor.h"
#include "support/errno_keeper.h"
#include "support/heap_buffer.h"
#include "support/held_semaphore.h"
#include "support/own_file.h"

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <unistd.h>

uint32_t varnok_debug = 0;
char varnoklog_path[512] = "";
FILE *varnokdbg_fp = nullptr;
int32_t varnok_dbg_sem_id = -1;
key_t varnok_dbg_semkey = 902;

namespace
{

constexpr size_t line_buffer_size = 256;
constexpr uint8_t line_piece_max = 250; // one more character, and the buffer leaves

char line_buffer[line_buffer_size];
uint8_t fill_index = 0;

constexpr char default_path[] = "/var/tmp/libvarnok.log";

// Once, until a log opens again. The log cannot tell of itself.
void tell_of_refusal(const char *why)
{
    static bool told = false;
    if (why == nullptr) {
        told = false;
    } else if (!told && (varnok_debug & VARNOK_DBG_ERROR) != 0) {
        fprintf(stderr, "varnok_dbg_get_fptr:libvarnok: WARNING - log file %s refused: %s\n",
                varnoklog_path, why);
        told = true;
    }
}

int open_log_descriptor()
{
    constexpr int flags = O_WRONLY | O_APPEND;
    constexpr mode_t any_mode = 0666;
    // A caller's own choice is the caller's.
    if (strcmp(varnoklog_path, default_path) != 0)
        return open(varnoklog_path, flags | O_CREAT | O_CLOEXEC, any_mode);
    // Every user can make files beside the default one.
    const varnok::own_file file =
        varnok::open_own_file(default_path, flags, varnok::owner_rule::anybody);
    tell_of_refusal(file.refused);
    return file.fd;
}

FILE *open_log_file()
{
    varnok::descriptor opened(open_log_descriptor());
    FILE *const file = opened ? fdopen(opened.get(), "a") : nullptr;
    if (file != nullptr)
        opened.release();
    return file;
}

void close_log_file()
{
    if (varnokdbg_fp != nullptr)
        fclose(varnokdbg_fp);
    varnokdbg_fp = nullptr;
}

// Goes straight to the file, ahead of the line that is still in the line buffer. False when there
// is no local time.
bool write_time_stamp(char *work, size_t size)
{
    memset(work, 0, size);
    const time_t now = time(nullptr);
    // cppcheck-suppress localtimeCalled; under the log's semaphore
    const tm *const local = localtime(&now);
    if (local == nullptr)
        return false;
    strftime(work, size, "%b %d %T", local);
    FILE *const file = varnok_dbg_get_fptr();
    if (file != nullptr) {
        fprintf(file, "%s: ", work);
        fflush(file);
        sync();
    }
    return true;
}

} // namespace

void varnok_set_debug_level(void)
{
    const char *const text = getenv("VARNOK_API_DEBUG");
    if (text == nullptr)
        return;
    // A long may have no room for bit 31.
    varnok_debug = static_cast<uint32_t>(strtoll(text, nullptr, 16));
    if (varnok_debug != 0 && varnok_dbg_sem_id == -1)
        varnok_dbg_sem_id = varnok_sem_get(varnok_dbg_semkey);
}

FILE *varnok_dbg_get_fptr(void)
{
    if (varnokdbg_fp != nullptr)
        return varnokdbg_fp;
    if (varnoklog_path[0] == '\0' && varnok_debug != 0) {
        memset(varnoklog_path, 0, sizeof varnoklog_path);
        memcpy(varnoklog_path, default_path, sizeof default_path);
    }
    // A caller may have filled the whole array: such a path has no end.
    if (varnoklog_path[0] != '\0' && memchr(varnoklog_path, '\0', sizeof varnoklog_path) != nullptr)
        varnokdbg_fp = open_log_file();
    return varnokdbg_fp;
}

void varnok_dbg_putc(char c)
{
    line_buffer[fill_index++] = c;
    if (c != '\n' && fill_index <= line_piece_max)
        return;
    line_buffer[fill_index] = '\0';
    fill_index = 0;
    fputs(line_buffer, stderr);
    if ((varnok_debug & VARNOK_DBG_FILE) != 0) {
        FILE *const file = varnok_dbg_get_fptr();
        if (file != nullptr)
            fputs(line_buffer, file);
    }
    memset(line_buffer, 0, sizeof line_buffer);
}

void varnok_dbg_puts(const char *s)
{
    for (; *s != '\0'; ++s)
        varnok_dbg_putc(*s);
}

void varnok_dbg_output_number(uint64_t n, uint8_t base)
{
    static constexpr char digit_set[] = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ";
    constexpr size_t letters = sizeof digit_set - 1;
    if (base < 2)
        return;
    const bool tag_hex = base == 16 && n > 9;
    char digits[64]; // enough for 64 bits in radix 2
    size_t count = 0;
    do {
        digits[count++] = n % base < letters ? digit_set[n % base] : '?';
        n /= base;
    } while (n != 0);
    while (count > 0)
        varnok_dbg_putc(digits[--count]);
    if (tag_hex)
        varnok_dbg_putc('h');
}

void varnok_dbg_print(const char *func_name, const char *string, uint64_t number, uint8_t radix,
                      uint8_t newline)
{
    if (varnok_debug == 0)
        return;
    const varnok::errno_keeper keeper;
    const varnok::heap_buffer<char> work(line_buffer_size);
    if (!work)
        return;
    const varnok::held_semaphore lock(varnok_dbg_sem_id);
    const bool stamp = (varnok_debug & VARNOK_DBG_FILE) != 0 && newline == 1;
    if (!stamp || write_time_stamp(work.get(), line_buffer_size)) {
        if (func_name != nullptr)
            varnok_dbg_puts(func_name);
        varnok_dbg_puts(string);
        if (radix != 0)
            varnok_dbg_output_number(number, radix);
        if (newline == 1)
            varnok_dbg_putc('\n');
    }
    close_log_file();
}
