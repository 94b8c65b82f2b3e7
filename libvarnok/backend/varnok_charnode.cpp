#include "varnok_charnode.h"

#include "varnok_log.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

uint8_t varnok_charnode_exist(const char *path)
{
    if (path == nullptr) {
        LOG_ERROR(": invalid char node file.");
        return 1;
    }
    const int fd = open(path, O_RDONLY);
    if (fd < 0) {
        LOG_ERROR(": file open failed.");
        return 1;
    }
    struct stat status = {};
    const bool is_node = fstat(fd, &status) == 0 && S_ISCHR(status.st_mode);
    if (!is_node)
        LOG_ERROR(": file not char node.");
    close(fd);
    if (!is_node)
        return 1;
    LOG_TRACE(": exiting.");
    return 0;
}
