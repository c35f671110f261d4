#include "github/GitHubSearch.h"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <limits>
#include <utility>

#include <nlohmann/json.hpp>

#include "github/GitHubAPI.h"
#include "github/GitHubJSON.h"
#include "support/Text.h"

namespace tessivane {

namespace {

using nlohmann::json;

constexpr std::string_view searchQuery = R"(query($q: String!, $cursor: String) {
  search(query: $q, type: ISSUE, first: 100, after: $cursor) {
    pageInfo { hasNextPage endCursor }
    nodes {
      ... on PullRequest {
        number title url createdAt mergedAt updatedAt state headRefName
        repository { nameWithOwner url sshUrl }
      }
    }
  }
})";

// GitHub takes a moment until its search knows an update, so what was asked for is asked for again.
constexpr std::chrono::seconds overlap{120};
constexpr std::size_t titleLength = 200;
// What the query asks for; more would come from no GitHub.
constexpr std::size_t maxNodes = 100;

std::optional<std::int64_t> integerField(const json& value, std::string_view key) {
  const auto found = value.find(key);
  if (found == value.end() || !found->is_number_integer())
    return std::nullopt;
  if (found->is_number_unsigned() &&
      found->get<std::uint64_t>() > std::uint64_t{std::numeric_limits<std::int64_t>::max()})
    return std::nullopt;
  return found->get<std::int64_t>();
}

std::optional<Date> dateField(const json& value, std::string_view key) {
  const auto text = stringField(value, key);
  return text ? isoDate(*text) : std::nullopt;
}

std::string titleOf(const json& node, std::int64_t number) {
  const std::string line = collapsedWhitespace(stringField(node, "title").value_or(""));
  const std::string_view title = prefixCharacters(line, titleLength);
  return title.empty() ? "PR #" + std::to_string(number) : std::string(title);
}

std::optional<std::string> nextCursorOf(const json& search) {
  const json* const info = objectField(search, "pageInfo");
  if (info == nullptr || info->value("hasNextPage", json()) != true)
    return std::nullopt;
  return stringField(*info, "endCursor");
}

}  // namespace

GitHubResult<std::vector<GitHubPR>> GitHubSearch::fetchAll(std::string_view login,
                                                           Date since,
                                                           std::string_view token,
                                                           GitHubTransport& transport,
                                                           Date now,
                                                           const std::stop_token& stop) {
  json variables = {{"q", "is:pr author:" + std::string(login) + " updated:>=" + isoText(since)}};
  std::vector<GitHubPR> prs;
  for (std::size_t pages = 1;; ++pages) {
    const auto data = GitHubAPI::graphQL(token, searchQuery, variables, transport, now, stop);
    if (const auto* error = std::get_if<GitHubError>(&data))
      return *error;
    std::optional<Page> page = parsePage(std::get<json>(data));
    if (!page)
      return GitHubError{.kind = GitHubError::Kind::malformed};
    std::ranges::move(page->prs, std::back_inserter(prs));
    if (!page->nextCursor || pages == maxPages)
      return prs;
    variables["cursor"] = *page->nextCursor;
  }
}

std::optional<GitHubSearch::Page> GitHubSearch::parsePage(const json& data) {
  const json* const search = objectField(data, "search");
  if (search == nullptr)
    return std::nullopt;
  Page page{.nextCursor = nextCursorOf(*search)};
  const auto nodes = search->find("nodes");
  if (nodes == search->end() || !nodes->is_array())
    return page;
  for (std::size_t i = 0; i < std::min(nodes->size(), maxNodes); ++i) {
    if (auto pr = parseNode((*nodes)[i]))
      page.prs.push_back(*std::move(pr));
  }
  return page;
}

std::optional<GitHubPR> GitHubSearch::parseNode(const json& node) {
  const auto number = integerField(node, "number");
  const auto created = dateField(node, "createdAt");
  const auto updated = dateField(node, "updatedAt");
  const json* const repository = objectField(node, "repository");
  const auto name =
      repository != nullptr ? stringField(*repository, "nameWithOwner") : std::nullopt;
  if (!number || !created || !updated || !name)
    return std::nullopt;
  const std::string webURL = GitHubAPI::webURL + *name + "/pull/" + std::to_string(*number);
  return GitHubPR{.repo = *name,
                  .number = *number,
                  .title = titleOf(node, *number),
                  .url = stringField(node, "url").value_or(webURL),
                  .createdAt = *created,
                  .mergedAt = dateField(node, "mergedAt"),
                  .updatedAt = *updated,
                  .headRefName = stringField(node, "headRefName"),
                  .repoURL = stringField(*repository, "url"),
                  .sshURL = stringField(*repository, "sshUrl")};
}

std::optional<Date> GitHubSearch::nextCursor(const std::vector<GitHubPR>& prs,
                                             std::optional<Date> previous) {
  if (prs.empty())
    return std::nullopt;
  const Date latest = std::ranges::max_element(prs, {}, &GitHubPR::updatedAt)->updatedAt;
  // An optional without a date is before every date.
  return std::max<std::optional<Date>>(withinCalendar(latest - overlap), previous);
}

}  // namespace tessivane
