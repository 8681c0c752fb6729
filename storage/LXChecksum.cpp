#include "storage/LXChecksum.h"

namespace {

struct Table {
    uint32_t entries[256];
    Table() {
        for (uint32_t i = 0; i < 256; i++) {
            uint32_t c = i;
            for (int k = 0; k < 8; k++) c = (c & 1) ? 0xEDB88320u ^ (c >> 1) : c >> 1;
            entries[i] = c;
        }
    }
};

}  // namespace

uint32_t LXCrc32(const void* bytes, size_t length) {
    static const Table table;
    const unsigned char* p = static_cast<const unsigned char*>(bytes);
    uint32_t c = 0xFFFFFFFFu;
    for (size_t i = 0; i < length; i++) c = table.entries[(c ^ p[i]) & 0xFF] ^ (c >> 8);
    return c ^ 0xFFFFFFFFu;
}
