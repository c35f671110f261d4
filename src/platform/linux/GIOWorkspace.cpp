#include "platform/linux/GIOWorkspace.h"

#include <algorithm>
#include <memory>
#include <set>
#include <string>
#include <system_error>
#include <thread>
#include <utility>

#include <gio/gdesktopappinfo.h>
#include <gio/gio.h>

namespace tessivane {

namespace {

struct Unref {
  void operator()(gpointer object) const { g_object_unref(object); }
};
using Application = std::unique_ptr<GAppInfo, Unref>;

struct KnownName {
  std::string_view identifier;
  // In small letters and digits.
  std::string_view name;
};
constexpr KnownName knownNames[] = {{"com.t3tools.t3code", "t3code"}};

constexpr std::string_view entrySuffix = ".desktop";
constexpr std::string_view appImagePrefix = "appimagekit_";

std::string lettersAndDigits(std::string_view text) {
  std::string result;
  for (const char character : text) {
    if (g_ascii_isalnum(character))
      result += g_ascii_tolower(character);
  }
  return result;
}

// The application that the person, or else the system, has chosen for this URL.
Application handler(const std::string& url) {
  const char* const scheme = g_uri_peek_scheme(url.c_str());
  if (scheme == nullptr)
    return nullptr;
  return Application(g_app_info_get_default_for_uri_scheme(scheme));
}

Application entryNamed(const std::string& entry) {
  GDesktopAppInfo* const found = g_desktop_app_info_new(entry.c_str());
  return Application(found == nullptr ? nullptr : G_APP_INFO(found));
}

// The first, by name, of the entries that an application may have. Helpers that no menu shows (many
// packages install one for their URLs) are not what a person means by the application.
Application knownEntry(const std::string& identifier) {
  std::set<std::string> names;
  GList* const all = g_app_info_get_all();
  for (const GList* link = all; link != nullptr; link = link->next) {
    GAppInfo* const candidate = G_APP_INFO(link->data);
    const char* const entry = g_app_info_get_id(candidate);
    if (entry != nullptr && isKnownDesktopEntry(entry, identifier) &&
        g_app_info_should_show(candidate))
      names.insert(entry);
  }
  g_list_free_full(all, g_object_unref);
  return names.empty() ? nullptr : entryNamed(*names.begin());
}

Application application(const std::string& identifier) {
  Application exact = entryNamed(identifier + std::string(entrySuffix));
  return exact != nullptr ? std::move(exact) : knownEntry(identifier);
}

// On a thread of its own that nobody waits for: to start an application GIO asks the session bus,
// and one that does not answer would hold up the caller without end.
bool launch(Application application, const std::string* url) {
  if (application == nullptr)
    return false;
  GList* const urls = url == nullptr ? nullptr : g_list_append(nullptr, g_strdup(url->c_str()));
  try {
    std::thread([started = application.get(), urls] {
      // Why it failed is of no use to anybody by now.
      g_app_info_launch_uris(started, urls, nullptr, nullptr);
      g_list_free_full(urls, g_free);
      g_object_unref(started);
    }).detach();
  } catch (const std::system_error&) {
    g_list_free_full(urls, g_free);
    return false;
  }
  // The thread has it.
  static_cast<void>(application.release());
  return true;
}

std::optional<WorkspaceApplication> description(const Application& application) {
  if (application == nullptr)
    return std::nullopt;
  const char* const id = g_app_info_get_id(application.get());
  return WorkspaceApplication{.id = id == nullptr ? "" : id,
                              .name = g_app_info_get_display_name(application.get())};
}

}  // namespace

bool isKnownDesktopEntry(std::string_view entry, std::string_view identifier) {
  if (!entry.ends_with(entrySuffix))
    return false;
  entry.remove_suffix(entrySuffix.size());
  if (entry.starts_with(appImagePrefix))
    entry.remove_prefix(std::min(entry.size(), entry.find('-')));
  for (const KnownName& known : knownNames) {
    if (known.identifier == identifier && lettersAndDigits(entry).starts_with(known.name))
      return true;
  }
  return false;
}

Workspace gioWorkspace() {
  Workspace workspace;
  workspace.handlesURL = [](const std::string& url) { return handler(url) != nullptr; };
  workspace.openURL = [](const std::string& url) { return launch(handler(url), &url); };
  workspace.findApplication = [](const std::string& identifier) {
    return description(application(identifier));
  };
  workspace.launchApplication = [](const std::string& identifier) {
    return launch(application(identifier), nullptr);
  };
  return workspace;
}

}  // namespace tessivane
