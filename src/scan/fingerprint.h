// The source fingerprint: a cheap change detector for a scanned folder. Each item contributes a
// 64-bit FNV-1a hash of its relative path, folder flag, logical size and modification time; the
// fingerprint is the sum of those, so the order of the walk does not matter.
//
// File format: fingerprints are stored with every scan and compared with later snapshots, so the
// start value (deliberately not the standard FNV offset basis), the prime and the byte order of
// the fed values must never change.
#pragma once

#include <cstdint>
#include <cstring>
#include <string_view>

namespace tw {

inline constexpr uint64_t kFingerprintStart = 0x14650FB0739D0383ULL;
inline constexpr uint64_t kFingerprintPrime = 0x100000001B3ULL;

struct FingerprintHash {
  uint64_t h = kFingerprintStart;

  void feed(std::string_view bytes) {
    for (unsigned char c : bytes) h = (h ^ c) * kFingerprintPrime;
  }
  void feedByte(uint8_t byte) { h = (h ^ byte) * kFingerprintPrime; }
  void feedLittleEndian(uint64_t value) {
    for (int i = 0; i < 8; ++i) feedByte(static_cast<uint8_t>(value >> (8 * i)));
  }
  // One item, after its relative path has been fed.
  uint64_t finishItem(bool directory, uint64_t fileSize, double modificationDate) const {
    FingerprintHash copy = *this;
    copy.feedByte(directory ? 1 : 0);
    copy.feedLittleEndian(fileSize);
    uint64_t bits;
    std::memcpy(&bits, &modificationDate, sizeof bits);
    copy.feedLittleEndian(bits);
    return copy.h;
  }
};

}  // namespace tw
