#include "backend/varnok_charnode.h"

#include "support/descriptor.h"
#include "support/varnok_log.h"

#include <fcntl.h>
#include <sys/stat.h>

uint8_t varnok_charnode_exist(const char *path)
{
    if (path == nullptr) {
        LOG_ERROR(": invalid char node file.");
        return 1;
    }
    varnok::descriptor node(open(path, O_RDONLY));
    if (!node) {
        LOG_ERROR(": file open failed.");
        return 1;
    }
    struct stat status = {};
    if (fstat(node.get(), &status) != 0 || !S_ISCHR(status.st_mode)) {
        LOG_ERROR(": file not char node.");
        return 1;
    }
    node.reset();
    LOG_TRACE(": exiting.");
    return 0;
}
