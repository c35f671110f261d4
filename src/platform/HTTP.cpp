#include "platform/HTTP.h"

#include <algorithm>
#include <cstring>

namespace tessivane {

namespace {

// Header names are ASCII; the process's locale has no say.
char lowered(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

}  // namespace

std::optional<std::string> HTTPResponse::header(std::string_view name) const {
  const auto found = std::find_if(headers.rbegin(), headers.rend(), [name](const HTTPHeader& item) {
    return std::ranges::equal(item.name, name, {}, lowered, lowered);
  });
  if (found == headers.rend())
    return std::nullopt;
  return found->value;
}

void wipe(HTTPRequest& request) {
  const auto overwrite = [](std::string& text) { ::explicit_bzero(text.data(), text.size()); };
  for (HTTPHeader& header : request.headers)
    overwrite(header.value);
  if (request.body)
    overwrite(*request.body);
}

}  // namespace tessivane
