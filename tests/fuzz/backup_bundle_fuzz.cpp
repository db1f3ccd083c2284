// Arbitrary text as a backup bundle: the splitter must never crash and must
// never hand back a file name that leaves the configuration directory.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "modules/system/backup.h"
#include "platform/trace.h"

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    set_trace_level(3); // silent
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    std::string text(reinterpret_cast<const char *>(data), size);
    std::vector<std::pair<std::string, std::string>> files;
    if (backup_split(text, &files)) {
        for (const auto &f : files) {
            if (f.first.empty() || f.first.find('/') != std::string::npos || f.first[0] == '.')
                abort();
        }
    }
    return 0;
}
