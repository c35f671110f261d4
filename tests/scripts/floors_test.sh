#!/usr/bin/env bash
# Tries cmake/TessivaneLibrary.cmake on small projects, good and bad ones. Usage: floors_test.sh ROOT
set -u
root=$1
work=$(mktemp -d)
trap 'rm -rf -- "$work"' EXIT
project="$work/a project"
failures=0

# fresh: three floors, where sessions stands on git alone and reaches support through it.
fresh() {
  rm -rf -- "$project/src" "$project/resources" "$project/cmake"
  mkdir -p "$project"/{src/{support,git,sessions},resources}
  cp -r "$root/cmake" "$project/"
  cat >"$project/CMakeLists.txt" <<'END'
cmake_minimum_required(VERSION 3.25)
project(Trial LANGUAGES CXX)
set(CMAKE_CXX_STANDARD 20)
set(TESSIVANE_GENERATED "${PROJECT_BINARY_DIR}/generated")
include(cmake/TessivaneLibrary.cmake)
add_subdirectory(src/support)
add_subdirectory(src/git)
add_subdirectory(src/sessions)
END
  echo 'tessivane_library(support SOURCES One.h)' >"$project/src/support/CMakeLists.txt"
  echo 'tessivane_library(git SOURCES Two.h DEPENDS support)' >"$project/src/git/CMakeLists.txt"
  echo 'tessivane_library(sessions SOURCES Three.cpp DEPENDS git)' \
    >"$project/src/sessions/CMakeLists.txt"
  echo '#include <vector>' >"$project/src/support/One.h"
  printf '// "git/No.h"\n\n#include "support/One.h"\n' >"$project/src/git/Two.h"
  printf '#include "git/Two.h"\n# include "support/One.h"\n' >"$project/src/sessions/Three.cpp"
}

configure() {
  cmake -S "$project" -B "$project/build" -G Ninja
}

# accepted WHAT COMMAND... and refused WHAT MESSAGE COMMAND...
accepted() {
  local what=$1 output
  shift
  output=$("$@" 2>&1) && return
  printf 'FAILED: %s should be accepted\n%s\n' "$what" "$output"
  failures=$((failures + 1))
}
refused() {
  local what=$1 message=$2 output
  shift 2
  if output=$("$@" 2>&1); then
    printf 'FAILED: %s should be refused\n' "$what"
  elif ! tr -s ' \n' ' ' <<<"$output" | grep -qF -- "$message"; then
    printf 'FAILED: %s should be refused with "%s", not with\n%s\n' "$what" "$message" "$output"
  else
    return
  fi
  failures=$((failures + 1))
}

fresh
accepted "a use of reachable floors" configure

fresh
sed -i 's/One.h/One.h DEPENDS git/' "$project/src/support/CMakeLists.txt"
refused "an edge upwards" "src/support may not depend on git." configure

fresh
sed -i 's/(git/(gitt/' "$project/src/git/CMakeLists.txt"
refused "a folder that is no floor" "src/gitt is not a floor." configure

fresh
printf '#pragma once\n\n  #  include <git/Two.h>\n' >"$project/src/support/One.h"
refused "an include upwards" "/src/support/One.h:3:" configure

fresh
sed -i 's/ DEPENDS git//' "$project/src/sessions/CMakeLists.txt"
refused "an include that no edge leads to" "src/sessions does not stand on git" configure

fresh
printf '#include "support/One.h"  // [[\\\n#include "../support/One.h"\n' >"$project/src/git/Two.h"
refused "a way round the floors" "/src/git/Two.h:2:" configure

fresh
accepted "the project before the edit" configure
printf '#include "sessions/Three.h"\n' >"$project/src/git/Two.h"
touch -d '+2 seconds' "$project/src/git/Two.h"
refused "an edit between two builds" "src/git does not stand on sessions" \
  cmake --build "$project/build"

# Resources: their bytes arrive as they are, and again after a change.
fresh
cat >"$project/src/sessions/Three.cpp" <<'END'
#include <cstdio>

#include "sessions/Resources.h"

using namespace tessivane::resources;

// Other sources may use the texts while they are initialised themselves.
static const std::string_view copy = aTextSql;

int main() {
  std::fwrite(copy.data(), 1, copy.size(), stdout);
  std::fwrite(emptyTxt.data(), 1, emptyTxt.size(), stdout);
}
END
cat >>"$project/src/sessions/CMakeLists.txt" <<'END'
tessivane_resources(tessivane_sessions FILES a-text.sql empty.txt)
add_executable(trial Three.cpp)
target_link_libraries(trial PRIVATE tessivane_sessions)
END
text=$project/resources/a-text.sql
: >"$text"
refused "a missing resource" "/resources/empty.txt, which does not exist." configure
: >"$project/resources/empty.txt"
same_bytes() {
  cmake --build "$project/build" && "$project/build/src/sessions/trial" | cmp - "$text"
}
printf 'SELECT \x27a)"\\n\x27, "%%s"; -- )" )x" \\\r\n\xc3\xa9\xff\x00 []; ??/ end' >"$text"
accepted "a project with resources" configure
accepted "a resource with every kind of byte" same_bytes
yes 'a longer text, to pass every limit of a literal' | head -c 200000 >"$text"
touch -d '+2 seconds' "$text"
accepted "a resource that changed and is long" same_bytes

[[ $failures -eq 0 ]]
