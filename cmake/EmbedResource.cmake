# Writes OUTPUT, a source file that defines CONSTANT as the bytes of INPUT. Run by the build whenever
# INPUT changes. Bytes are written one by one: a string literal would have a length limit, and a raw
# one could be ended by the text itself.

file(READ "${INPUT}" hex HEX)
string(LENGTH "${hex}" digits)
math(EXPR size "${digits} / 2")
string(REGEX REPLACE "(..)" "'\\\\x\\1'," bytes "${hex}")
string(REGEX REPLACE "('[^']+','[^']+','[^']+','[^']+','[^']+','[^']+','[^']+','[^']+',)" "\\1\n    "
  bytes "${bytes}")

file(WRITE "${OUTPUT}"
"#include \"${HEADER}\"

namespace tessivane::resources {
namespace {

constexpr char bytes[] = {
    ${bytes}'\\0'};

}  // namespace

constinit const std::string_view ${CONSTANT}{bytes, ${size}};

}  // namespace tessivane::resources
")
