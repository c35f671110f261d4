#include <cstddef>
#include <cstdint>

#include "fuzz/ScanChecks.h"

// The name under which libFuzzer looks for it. NOLINTNEXTLINE(readability-identifier-naming)
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  tessivane::fuzz::checkGHCommand({reinterpret_cast<const char*>(data), size});
  return 0;
}
