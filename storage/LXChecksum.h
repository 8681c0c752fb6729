// CRC-32 (IEEE 802.3, reflected, polynomial 0xEDB88320): the checksum of
// each entry of a container's journal. crc32("123456789") is 0xCBF43926.
#pragma once

#include <cstddef>
#include <cstdint>

uint32_t LXCrc32(const void* bytes, size_t length);
