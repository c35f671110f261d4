#include "platform/SystemClock.h"

namespace tessivane {

Date systemNow() {
  return std::chrono::floor<std::chrono::microseconds>(std::chrono::system_clock::now());
}

}  // namespace tessivane
