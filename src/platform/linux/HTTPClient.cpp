#include "platform/linux/HTTPClient.h"

#include <curl/curl.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include "platform/TimerSchedule.h"

namespace tessivane {

namespace {

using Easy = std::unique_ptr<CURL, decltype(&curl_easy_cleanup)>;
using Multi = std::unique_ptr<CURLM, decltype(&curl_multi_cleanup)>;

// Rounded up, so that what is not over yet is never zero.
template <typename Duration>
long milliseconds(Duration duration) {
  return std::chrono::ceil<std::chrono::milliseconds>(duration).count();
}

// Never undone: it lasts as long as the process.
bool isCurlReady() {
  static const bool ready = curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK;
  return ready;
}

// The headers as libcurl takes them. What it makes of them on the way to the socket is its own.
class HeaderList final {
 public:
  HeaderList() = default;
  HeaderList(const HeaderList&) = delete;
  HeaderList& operator=(const HeaderList&) = delete;
  ~HeaderList() {
    for (curl_slist* item = list_; item != nullptr; item = item->next)
      ::explicit_bzero(item->data, ::strlen(item->data));
    curl_slist_free_all(list_);
  }

  // False when the header would be more than one line, and so another header too.
  bool add(const HTTPHeader& header) {
    constexpr std::string_view lineEnds("\r\n\0", 3);
    if (header.name.find_first_of(lineEnds) != std::string::npos ||
        header.value.find_first_of(lineEnds) != std::string::npos)
      return false;
    // "Name:" would tell libcurl not to send that header.
    std::string line;
    line.reserve(header.name.size() + header.value.size() + 2);
    line += header.name;
    line += header.value.empty() ? ";" : ": ";
    line += header.value;
    curl_slist* const longer = curl_slist_append(list_, line.c_str());
    ::explicit_bzero(line.data(), line.size());
    if (longer == nullptr)
      return false;
    list_ = longer;
    return true;
  }

  curl_slist* get() const { return list_; }

 private:
  curl_slist* list_ = nullptr;
};

// What comes in while libcurl works.
struct Incoming {
  std::string body;
  std::size_t headerBytes = 0;
  // Of the last response so far: libcurl takes one that was cut within its head for a whole one.
  bool isHeadWhole = false;
  MonotonicTime lastByte = std::chrono::steady_clock::now();
};

// Anything but `size` as the result ends the exchange.
std::size_t takeHeader(const char* bytes, std::size_t, std::size_t size, void* context) noexcept {
  auto& incoming = *static_cast<Incoming*>(context);
  const std::string_view line(bytes, size);
  incoming.lastByte = std::chrono::steady_clock::now();
  incoming.headerBytes += size;
  if (line.starts_with("HTTP/"))
    incoming.isHeadWhole = false;
  else if (line == "\r\n" || line == "\n")
    incoming.isHeadWhole = true;
  return incoming.headerBytes <= HTTPClient::maxHeaders ? size : 0;
}

std::size_t takeBody(const char* bytes, std::size_t, std::size_t size, void* context) noexcept {
  auto& incoming = *static_cast<Incoming*>(context);
  incoming.lastByte = std::chrono::steady_clock::now();
  if (size > HTTPClient::maxBody - incoming.body.size())
    return 0;
  incoming.body.append(bytes, size);
  return size;
}

void prepare(CURL* easy, const HTTPRequest& request, const HeaderList& headers) {
  curl_easy_setopt(easy, CURLOPT_URL, request.url.c_str());
  curl_easy_setopt(easy, CURLOPT_PROTOCOLS_STR, "http,https");
  curl_easy_setopt(easy, CURLOPT_FOLLOWLOCATION, 0L);
  curl_easy_setopt(easy, CURLOPT_SSL_VERIFYPEER, 1L);
  curl_easy_setopt(easy, CURLOPT_SSL_VERIFYHOST, 2L);
  // libcurl leaves this to its caller. Whoever is behind a proxy that looks into TLS has set it
  // already, for gh and curl.
  // NOLINTNEXTLINE(concurrency-mt-unsafe): nothing here sets the environment
  const char* const authorities = std::getenv("SSL_CERT_FILE");
  if (authorities != nullptr && *authorities != '\0')
    curl_easy_setopt(easy, CURLOPT_CAINFO, authorities);
  // What the tests' server speaks as well; nothing here would gain from the newer versions.
  curl_easy_setopt(easy, CURLOPT_HTTP_VERSION, long{CURL_HTTP_VERSION_1_1});
  // As it must be where there are threads. Writing to a connection that is gone raises no signal
  // either: libcurl asks for none, under TLS too.
  curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
  // Without this, ending waits for the name that is being looked up, which may take half a minute.
  curl_easy_setopt(easy, CURLOPT_QUICK_EXIT, 1L);
  // Of its several addresses each gets a share of this.
  curl_easy_setopt(easy, CURLOPT_CONNECTTIMEOUT_MS, milliseconds(HTTPClient::maxSilence));

  if (request.body) {
    curl_easy_setopt(easy, CURLOPT_POSTFIELDS, request.body->data());
    curl_easy_setopt(
        easy, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request.body->size()));
  }
  curl_easy_setopt(easy, CURLOPT_CUSTOMREQUEST, request.method.c_str());
  curl_easy_setopt(easy, CURLOPT_HTTPHEADER, headers.get());
  curl_easy_setopt(easy, CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
}

void collect(CURL* easy, Incoming& incoming) {
  curl_easy_setopt(easy, CURLOPT_HEADERFUNCTION, &takeHeader);
  curl_easy_setopt(easy, CURLOPT_HEADERDATA, &incoming);
  // Refuses a body that says it is too long; for the others there is `takeBody`.
  curl_easy_setopt(easy, CURLOPT_MAXFILESIZE_LARGE, curl_off_t{HTTPClient::maxBody});
  curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &takeBody);
  curl_easy_setopt(easy, CURLOPT_WRITEDATA, &incoming);
}

// Whether the one exchange of `multi` has ended, and how.
std::optional<CURLcode> ended(CURLM* multi) {
  int left = 0;
  const CURLMsg* const message = curl_multi_info_read(multi, &left);
  if (message == nullptr || message->msg != CURLMSG_DONE)
    return std::nullopt;
  return message->data.result;
}

// Works until the exchange has ended. False when it failed, took too long or was stopped.
bool perform(CURLM* multi,
             const Incoming& incoming,
             MonotonicTime deadline,
             const std::stop_token& stop) {
  const std::stop_callback wake(stop, [multi] { curl_multi_wakeup(multi); });
  while (!stop.stop_requested()) {
    int running = 0;
    if (curl_multi_perform(multi, &running) != CURLM_OK)
      return false;
    if (const auto result = ended(multi))
      return *result == CURLE_OK && incoming.isHeadWhole;
    const auto left = std::min(deadline, incoming.lastByte + HTTPClient::maxSilence) -
                      std::chrono::steady_clock::now();
    if (left <= left.zero())
      return false;
    curl_multi_poll(multi, nullptr, 0, static_cast<int>(milliseconds(left)), nullptr);
  }
  return false;
}

int statusOf(CURL* easy) {
  long status = 0;
  curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &status);
  return static_cast<int>(status);
}

// Those of the final response: without a proxy's, and without those of a "100 Continue".
std::vector<HTTPHeader> headersOf(CURL* easy) {
  std::vector<HTTPHeader> headers;
  curl_header* header = nullptr;
  while ((header = curl_easy_nextheader(easy, CURLH_HEADER, -1, header)) != nullptr)
    headers.push_back({.name = header->name, .value = header->value});
  return headers;
}

}  // namespace

std::optional<HTTPResponse> HTTPClient::send(const HTTPRequest& request,
                                             const std::stop_token& stop) {
  const MonotonicTime deadline =
      std::chrono::steady_clock::now() +
      std::min<MonotonicDuration>(timerDuration(request.timeout, {}), maxDuration);
  if (!isCurlReady())
    return std::nullopt;
  HeaderList headers;
  for (const HTTPHeader& header : request.headers) {
    if (!headers.add(header))
      return std::nullopt;
  }

  Incoming incoming;
  const Multi multi(curl_multi_init(), &curl_multi_cleanup);
  const Easy easy(curl_easy_init(), &curl_easy_cleanup);
  if (multi == nullptr || easy == nullptr)
    return std::nullopt;
  prepare(easy.get(), request, headers);
  collect(easy.get(), incoming);
  if (curl_multi_add_handle(multi.get(), easy.get()) != CURLM_OK)
    return std::nullopt;
  std::optional<HTTPResponse> response;
  if (perform(multi.get(), incoming, deadline, stop))
    response = HTTPResponse{.status = statusOf(easy.get()),
                            .headers = headersOf(easy.get()),
                            .body = std::move(incoming.body)};
  curl_multi_remove_handle(multi.get(), easy.get());
  return response;
}

}  // namespace tessivane
