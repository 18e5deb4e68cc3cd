// The CRC-32 of firmware files next to zlib's crc32, on a 64 KiB and a 1 MiB
// buffer: the form the running processor gets (carry-less folding where it
// has it), the portable slicing-by-8 form, and zlib.
#include <benchmark/benchmark.h>
#include <zlib.h>

#include <cstdint>
#include <random>
#include <vector>

#include "vyn/firmware/internal/crc32.h"

namespace {

std::vector<unsigned char> Buffer(size_t size) {
  std::vector<unsigned char> data(size);
  std::mt19937 random(7);
  for (unsigned char& byte : data) byte = static_cast<unsigned char>(random());
  return data;
}

void BM_Crc32Library(benchmark::State& state) {
  const std::vector<unsigned char> data = Buffer(static_cast<size_t>(state.range(0)));
  for (auto _ : state) {
    benchmark::DoNotOptimize(vyn::firmware::Crc32Update(0xFFFFFFFF, data.data(), data.size()));
  }
  state.SetBytesProcessed(state.iterations() * state.range(0));
  state.SetLabel(vyn::firmware::Crc32FoldingAvailable() ? "carry-less folding" : "slicing-by-8");
}
BENCHMARK(BM_Crc32Library)->Arg(64 << 10)->Arg(1 << 20);

void BM_Crc32Portable(benchmark::State& state) {
  const std::vector<unsigned char> data = Buffer(static_cast<size_t>(state.range(0)));
  for (auto _ : state) {
    benchmark::DoNotOptimize(
        vyn::firmware::Crc32UpdatePortable(0xFFFFFFFF, data.data(), data.size()));
  }
  state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_Crc32Portable)->Arg(64 << 10)->Arg(1 << 20);

void BM_Crc32Zlib(benchmark::State& state) {
  const std::vector<unsigned char> data = Buffer(static_cast<size_t>(state.range(0)));
  for (auto _ : state) {
    benchmark::DoNotOptimize(crc32(0, data.data(), static_cast<uInt>(data.size())));
  }
  state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_Crc32Zlib)->Arg(64 << 10)->Arg(1 << 20);

}  // namespace

BENCHMARK_MAIN();
