#include "github/GitHubRemoteURL.h"

#include <algorithm>
#include <array>

#include "support/Text.h"

namespace tessivane {

namespace {

// "ssh." serves those whose firewall lets only the port of https through.
constexpr std::array<std::string_view, 3> hosts = {
    "github.com", "www.github.com", "ssh.github.com"};

struct Address {
  std::string_view host;
  std::string_view path;
};

std::string_view withoutQuotes(std::string_view text) {
  constexpr std::string_view quotes = " \t\r\n\"'";
  text.remove_prefix(std::min(text.find_first_not_of(quotes), text.size()));
  return text.substr(0, text.find_last_not_of(quotes) + 1);
}

std::optional<Address> addressOf(std::string_view url) {
  const auto scheme = url.find("://");
  const bool hasScheme = scheme != std::string_view::npos;
  if (hasScheme)
    url.remove_prefix(scheme + 3);
  const auto end = url.find(hasScheme ? '/' : ':');
  if (end == std::string_view::npos)
    return std::nullopt;
  std::string_view host = url.substr(0, end);
  const auto user = host.rfind('@');
  // Without scheme and user it may be a path on this computer.
  if (!hasScheme && user == std::string_view::npos)
    return std::nullopt;
  if (user != std::string_view::npos)
    host.remove_prefix(user + 1);
  return Address{.host = host.substr(0, host.find(':')), .path = url.substr(end + 1)};
}

}  // namespace

std::vector<std::string> GitHubRemoteURL::remoteURLs(std::string_view config) {
  std::vector<std::string> urls;
  bool inRemote = false;
  while (!config.empty()) {
    const auto whole = config.substr(0, config.find('\n'));
    config.remove_prefix(std::min(whole.size() + 1, config.size()));
    const auto line = trimmed(whole);
    if (line.starts_with('[')) {
      inRemote = line.starts_with("[remote ");
      continue;
    }
    const auto equals = line.find('=');
    if (!inRemote || equals == std::string_view::npos)
      continue;
    const std::string key = loweredASCII(trimmed(line.substr(0, equals)));
    if (key == "url" || key == "pushurl")
      urls.emplace_back(trimmed(line.substr(equals + 1)));
  }
  return urls;
}

std::optional<std::string> GitHubRemoteURL::nameWithOwner(std::string_view url) {
  const auto address = addressOf(withoutQuotes(url));
  if (!address || std::ranges::find(hosts, loweredASCII(address->host)) == hosts.end())
    return std::nullopt;
  // Git and GitHub take no notice of a slash too many at either end.
  auto path = address->path;
  path.remove_prefix(std::min(path.find_first_not_of('/'), path.size()));
  path = path.substr(0, path.find_last_not_of('/') + 1);
  const auto slash = std::min(path.find('/'), path.size());
  const auto owner = path.substr(0, slash);
  auto name = path.substr(std::min(slash + 1, path.size()));
  if (loweredASCII(name).ends_with(".git"))
    name.remove_suffix(4);
  if (owner.empty() || name.empty() || name.find('/') != std::string_view::npos)
    return std::nullopt;
  return std::string(owner) + '/' + std::string(name);
}

}  // namespace tessivane
