// vyn-keygen: writes a key file for firmware scrambling (format in
// keys/README.md). Without --seed the bytes come from the system's random
// source; with --seed N they follow from N, so that the development key file
// can be made again byte for byte.
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <random>
#include <string>
#include <vector>

namespace {

constexpr size_t kStreamSize = 32768;
constexpr size_t kKeys = 6;

// A small, well-mixed 64-bit generator; its output for a seed never changes,
// unlike that of the standard library's engines' distributions.
class SplitMix64 {
 public:
  explicit SplitMix64(uint64_t seed) : state_(seed) {}
  uint64_t Next() {
    uint64_t z = (state_ += 0x9E3779B97F4A7C15ULL);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ULL;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBULL;
    return z ^ (z >> 31);
  }

 private:
  uint64_t state_;
};

int Usage() {
  std::fprintf(stderr, "usage: vyn-keygen [--seed N] OUTPUT\n");
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  bool seeded = false;
  uint64_t seed = 0;
  std::string output;
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--seed") == 0 && i + 1 < argc) {
      char* end = nullptr;
      seed = std::strtoull(argv[++i], &end, 0);
      if (end == nullptr || *end != '\0') return Usage();
      seeded = true;
    } else if (output.empty() && argv[i][0] != '-') {
      output = argv[i];
    } else {
      return Usage();
    }
  }
  if (output.empty()) return Usage();

  std::random_device device;
  SplitMix64 mixer(seeded ? seed : (static_cast<uint64_t>(device()) << 32) ^ device());
  const auto next = [&]() -> uint64_t {
    return seeded ? mixer.Next() : (static_cast<uint64_t>(device()) << 32) ^ device();
  };

  std::vector<unsigned char> stream(kStreamSize);
  for (size_t i = 0; i < kStreamSize; i += 8) {
    const uint64_t word = next();
    for (size_t b = 0; b < 8; ++b) stream[i + b] = static_cast<unsigned char>(word >> (8 * b));
  }
  // Key 1 shares the start offset of key 2; keys 2 to 6 get distinct ones.
  std::array<uint16_t, kKeys> offsets{};
  for (size_t key = 1; key < kKeys; ++key) {
    bool taken = true;
    while (taken) {
      offsets[key] = static_cast<uint16_t>(next() % kStreamSize);
      taken = false;
      for (size_t other = 1; other < key; ++other) taken = taken || offsets[other] == offsets[key];
    }
  }
  offsets[0] = offsets[1];

  // The file is laid out in a buffer of its final size: magic, offsets, stream.
  const char magic[] = "VYNKEYS1";
  std::vector<unsigned char> file(8 + 2 * kKeys + kStreamSize);
  std::memcpy(file.data(), magic, 8);
  for (size_t key = 0; key < kKeys; ++key) {
    file[8 + 2 * key] = static_cast<unsigned char>(offsets[key] & 0xFF);
    file[8 + 2 * key + 1] = static_cast<unsigned char>(offsets[key] >> 8);
  }
  std::memcpy(file.data() + 8 + 2 * kKeys, stream.data(), kStreamSize);

  std::ofstream out(output, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(file.data()), static_cast<std::streamsize>(file.size()));
  out.close();
  if (!out) {
    std::fprintf(stderr, "vyn-keygen: cannot write %s\n", output.c_str());
    return 1;
  }
  return 0;
}
