#include "github/GitHubURLSessionTransport.h"

#include "platform/linux/HTTPClient.h"

namespace tessivane {

std::optional<HTTPResponse> GitHubURLSessionTransport::send(const HTTPRequest& request,
                                                            const std::stop_token& stop) {
  return HTTPClient::send(request, stop);
}

}  // namespace tessivane
