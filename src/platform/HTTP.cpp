#include "platform/HTTP.h"

#include <algorithm>
#include <cstring>

#include "support/Text.h"

namespace tessivane {

std::optional<std::string> HTTPResponse::header(std::string_view name) const {
  const auto found = std::find_if(
      headers.rbegin(), headers.rend(), [wanted = loweredASCII(name)](const auto& item) {
        return loweredASCII(item.name) == wanted;
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
