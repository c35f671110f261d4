#include "platform/linux/LibsecretStore.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <memory>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include <gio/gio.h>
#include <libsecret/secret.h>

namespace tessivane {

namespace {

constexpr const char* serviceAttribute = "service";
constexpr const char* accountAttribute = "account";

struct Unref {
  void operator()(gpointer object) const { g_object_unref(object); }
  void operator()(GHashTable* table) const { g_hash_table_unref(table); }
  void operator()(SecretValue* value) const { secret_value_unref(value); }
};
template <typename Type>
using Owned = std::unique_ptr<Type, Unref>;

struct Free {
  void operator()(gpointer memory) const { g_free(memory); }
};

// Keeps what concerns this thread's calls away from the main thread's loop, and lets it end: what
// waits for its turn holds the connection, which would never be let go.
class ThreadContext final {
 public:
  ThreadContext() { g_main_context_push_thread_default(context_); }
  ThreadContext(const ThreadContext&) = delete;
  ThreadContext& operator=(const ThreadContext&) = delete;
  ~ThreadContext() {
    while (g_main_context_iteration(context_, FALSE) != FALSE) {
    }
    g_main_context_pop_thread_default(context_);
    g_main_context_unref(context_);
  }

 private:
  GMainContext* context_ = g_main_context_new();
};

// What `operation` gives if that is within the limit, else an empty value. The operation runs on a
// thread of its own, which after the limit nobody waits for: it is cancelled, but GIO has places
// that cannot be, such as the start of a bus.
template <typename Result, typename Operation>
Result within(Seconds limit, Operation operation) {
  struct Shared {
    std::mutex mutex;
    std::condition_variable condition;
    bool done = false;
    Result result = {};
    Owned<GCancellable> cancellable{g_cancellable_new()};
  };
  const auto shared = std::make_shared<Shared>();
  try {
    std::thread([shared, operation = std::move(operation)] {
      Result result = [&] {
        const ThreadContext context;
        return operation(shared->cancellable.get());
      }();
      const std::lock_guard lock(shared->mutex);
      shared->result = std::move(result);
      shared->done = true;
      shared->condition.notify_all();
    }).detach();
  } catch (const std::system_error&) {
    return {};
  }
  {
    std::unique_lock lock(shared->mutex);
    if (shared->condition.wait_for(lock, limit, [&] { return shared->done; }))
      return std::move(shared->result);
  }
  g_cancellable_cancel(shared->cancellable.get());
  return {};
}

using Items = std::vector<Owned<SecretItem>>;

// The service as one operation sees it.
class Service final {
 public:
  explicit Service(GCancellable* cancellable)
      : cancellable_(cancellable), bus_(connect(cancellable)), service_(open()) {}
  Service(const Service&) = delete;
  Service& operator=(const Service&) = delete;
  ~Service() = default;

  explicit operator bool() const { return service_ != nullptr; }

  /// The items of that name, locked ones included, the latest first. Nothing when no keyring is
  /// open: a search may then have the service (KeePassXC) ask the person to unlock one. Locked
  /// keyrings are searched by attributes alone: GNOME Keyring matches no schema in them.
  std::optional<Items> search(const std::string& name) const {
    if (!hasOpenKeyring())
      return std::nullopt;
    const Owned<GHashTable> wanted(
        g_hash_table_new_full(g_str_hash, g_str_equal, nullptr, nullptr));
    insert(wanted, serviceAttribute, name);
    GError* error = nullptr;
    GList* const found = secret_service_search_sync(
        service_.get(), nullptr, wanted.get(), SECRET_SEARCH_ALL, cancellable_, &error);
    Items items;
    for (const GList* link = found; link != nullptr; link = link->next)
      items.emplace_back(SECRET_ITEM(link->data));
    g_list_free(found);
    if (error != nullptr) {
      g_error_free(error);
      return std::nullopt;
    }
    std::ranges::stable_sort(items, std::ranges::greater{}, [](const Owned<SecretItem>& item) {
      return secret_item_get_modified(item.get());
    });
    return items;
  }

  std::optional<Secret> read(SecretItem* item) const {
    if (secret_item_load_secret_sync(item, cancellable_, nullptr) == FALSE)
      return std::nullopt;
    const Owned<SecretValue> value(secret_item_get_secret(item));
    const Owned<GHashTable> attributes(secret_item_get_attributes(item));
    if (value == nullptr || attributes == nullptr)
      return std::nullopt;
    const auto* const account =
        static_cast<const char*>(g_hash_table_lookup(attributes.get(), accountAttribute));
    gsize size = 0;
    const char* const bytes = secret_value_get(value.get(), &size);
    return Secret{.account = account == nullptr ? "" : account, .value = {bytes, size}};
  }

  bool remove(SecretItem* item) const {
    return secret_item_delete_sync(item, cancellable_, nullptr) != FALSE;
  }

  /// The keyring for new items, if it can be written to without asking the person.
  Owned<SecretCollection> openKeyring() const {
    Owned<SecretCollection> keyring(secret_collection_for_alias_sync(
        service_.get(), SECRET_COLLECTION_DEFAULT, SECRET_COLLECTION_NONE, cancellable_, nullptr));
    if (keyring != nullptr && secret_collection_get_locked(keyring.get()) != FALSE)
      keyring.reset();
    return keyring;
  }

  bool add(SecretCollection* keyring,
           const std::string& name,
           const std::string& label,
           const Secret& secret) const {
    const Owned<GHashTable> attributes(
        g_hash_table_new_full(g_str_hash, g_str_equal, nullptr, nullptr));
    insert(attributes, serviceAttribute, name);
    insert(attributes, accountAttribute, secret.account);
    const Owned<SecretValue> value(secret_value_new(
        secret.value.data(), static_cast<gssize>(secret.value.size()), "text/plain"));
    const Owned<SecretItem> item(secret_item_create_sync(keyring,
                                                         schema(),
                                                         attributes.get(),
                                                         label.c_str(),
                                                         value.get(),
                                                         SECRET_ITEM_CREATE_REPLACE,
                                                         cancellable_,
                                                         nullptr));
    return item != nullptr;
  }

 private:
  bool hasOpenKeyring() const {
    GVariant* const paths =
        g_dbus_proxy_get_cached_property(G_DBUS_PROXY(service_.get()), "Collections");
    // What libsecret takes for granted, and complains of aloud, is not there when the service is
    // going just now.
    if (paths == nullptr)
      return false;
    g_variant_unref(paths);
    if (secret_service_load_collections_sync(service_.get(), cancellable_, nullptr) == FALSE)
      return false;
    GList* const keyrings = secret_service_get_collections(service_.get());
    bool isOpen = false;
    for (const GList* link = keyrings; link != nullptr; link = link->next)
      isOpen = isOpen || secret_collection_get_locked(SECRET_COLLECTION(link->data)) == FALSE;
    g_list_free_full(keyrings, g_object_unref);
    return isOpen;
  }

  // The connection that all of GIO shares for as long as anybody holds it.
  static Owned<GDBusConnection> connect(GCancellable* cancellable) {
    Owned<GDBusConnection> bus(g_bus_get_sync(G_BUS_TYPE_SESSION, cancellable, nullptr));
    // Else the end of the bus would be the end of this process.
    if (bus != nullptr)
      g_dbus_connection_set_exit_on_close(bus.get(), FALSE);
    return bus;
  }

  Owned<SecretService> open() const {
    if (bus_ == nullptr)
      return nullptr;
    return Owned<SecretService>(secret_service_open_sync(
        SECRET_TYPE_SERVICE, nullptr, SECRET_SERVICE_OPEN_SESSION, cancellable_, nullptr));
  }

  static void insert(const Owned<GHashTable>& table, const char* key, const std::string& value) {
    // The table takes what is not const, and leaves it as it is.
    g_hash_table_insert(
        table.get(), const_cast<char*>(key), const_cast<char*>(value.c_str()));  // NOLINT
  }

  static const SecretSchema* schema() {
    static const SecretSchema schema = [] {
      SecretSchema made{};
      made.name = "tessivane.Secret";
      made.flags = SECRET_SCHEMA_NONE;
      made.attributes[0] = {serviceAttribute, SECRET_SCHEMA_ATTRIBUTE_STRING};
      made.attributes[1] = {accountAttribute, SECRET_SCHEMA_ATTRIBUTE_STRING};
      return made;
    }();
    return &schema;
  }

  GCancellable* const cancellable_;
  const Owned<GDBusConnection> bus_;
  const Owned<SecretService> service_;
};

bool isLocked(const Owned<SecretItem>& item) {
  return secret_item_get_locked(item.get()) != FALSE;
}

std::optional<Secret> find(const std::string& name, GCancellable* cancellable) {
  const Service service(cancellable);
  const auto items = service ? service.search(name) : std::nullopt;
  if (!items)
    return std::nullopt;
  const auto open = std::ranges::find_if_not(*items, isLocked);
  return open == items->end() ? std::nullopt : service.read(open->get());
}

bool replace(const std::string& name,
             const std::string& label,
             const Secret& secret,
             GCancellable* cancellable) {
  const Service service(cancellable);
  const auto items = service ? service.search(name) : std::nullopt;
  if (!items || std::ranges::any_of(*items, isLocked))
    return false;
  const Owned<SecretCollection> keyring = service.openKeyring();
  if (keyring == nullptr)
    return false;
  // First the old one: an end in between leaves none, never two.
  return std::ranges::all_of(
             *items, [&](const Owned<SecretItem>& item) { return service.remove(item.get()); }) &&
         service.add(keyring.get(), name, label, secret);
}

bool remove(const std::string& name, GCancellable* cancellable) {
  const Service service(cancellable);
  const auto items = service ? service.search(name) : std::nullopt;
  if (!items)
    return false;
  for (const Owned<SecretItem>& item : *items) {
    if (!isLocked(item))
      service.remove(item.get());
  }
  return true;
}

// A copy that leaves no trace in memory.
std::shared_ptr<const Secret> wipedCopy(const Secret& secret) {
  return {new Secret(secret), [](Secret* copy) {
            ::explicit_bzero(copy->value.data(), copy->value.size());
            delete copy;
          }};
}

}  // namespace

SecretStore libsecretStore(Seconds limit) {
  SecretStore store;
  store.find = [limit](const std::string& name) {
    return within<std::optional<Secret>>(
        limit, [name](GCancellable* cancellable) { return find(name, cancellable); });
  };
  store.replace = [limit](const std::string& name, const std::string& label, const Secret& secret) {
    return within<bool>(limit, [name, label, copy = wipedCopy(secret)](GCancellable* cancellable) {
      return replace(name, label, *copy, cancellable);
    });
  };
  store.remove = [limit](const std::string& name) {
    within<bool>(limit, [name](GCancellable* cancellable) { return remove(name, cancellable); });
  };
  return store;
}

}  // namespace tessivane
