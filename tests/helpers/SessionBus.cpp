#include "helpers/SessionBus.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <thread>

#include <gio/gio.h>

#include "helpers/Command.h"

namespace tessivane {

namespace {

constexpr const char* busProgram = "/usr/bin/dbus-daemon";
constexpr const char* keyringProgram = "/usr/bin/gnome-keyring-daemon";
constexpr const char* addressVariable = "DBUS_SESSION_BUS_ADDRESS";
constexpr const char* secretService = "org.freedesktop.secrets";

// Everybody may do everything, and nobody is started by being called.
std::string busConfiguration(const std::string& directory) {
  return R"(<!DOCTYPE busconfig PUBLIC
 "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>session</type>
  <listen>unix:dir=)" +
         directory + R"(</listen>
  <policy context="default">
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
    <allow own="*"/>
  </policy>
</busconfig>
)";
}

void require(bool condition, const std::string& what) {
  if (!condition)
    throw std::runtime_error("SessionBus: " + what);
}

void end(pid_t& process) {
  if (process == 0)
    return;
  ::kill(process, SIGKILL);
  ::waitpid(process, nullptr, 0);
  process = 0;
}

GDBusConnection* connect(const std::string& address) {
  const auto flags =
      static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                        G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
  GDBusConnection* const connection =
      g_dbus_connection_new_for_address_sync(address.c_str(), flags, nullptr, nullptr, nullptr);
  require(connection != nullptr, "the bus cannot be reached");
  return connection;
}

void disconnect(GDBusConnection* connection) {
  g_dbus_connection_close_sync(connection, nullptr, nullptr);
  g_object_unref(connection);
}

using Variant = std::unique_ptr<GVariant, decltype(&g_variant_unref)>;

// Null when the call fails.
Variant call(GDBusConnection* connection,
             const char* service,
             const char* path,
             const char* interface,
             const char* method,
             GVariant* arguments) {
  return {g_dbus_connection_call_sync(connection,
                                      service,
                                      path,
                                      interface,
                                      method,
                                      arguments,
                                      nullptr,
                                      G_DBUS_CALL_FLAGS_NONE,
                                      -1,
                                      nullptr,
                                      nullptr),
          &g_variant_unref};
}

Variant callBus(GDBusConnection* connection, const char* method, GVariant* arguments) {
  constexpr const char* bus = "org.freedesktop.DBus";
  return call(connection, bus, "/org/freedesktop/DBus", bus, method, arguments);
}

// Waits until somebody has the name.
void awaitName(const std::string& address, const char* name) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  GDBusConnection* const connection = connect(address);
  bool appeared = false;
  while (!appeared && std::chrono::steady_clock::now() < end) {
    appeared = callBus(connection, "GetNameOwner", g_variant_new("(s)", name)) != nullptr;
    std::this_thread::sleep_for(std::chrono::milliseconds(appeared ? 0 : 5));
  }
  disconnect(connection);
  require(appeared, std::string(name) + " did not appear");
}

Variant callService(const std::string& address, const char* method, GVariant* arguments) {
  GDBusConnection* const connection = connect(address);
  Variant answer = call(connection,
                        secretService,
                        "/org/freedesktop/secrets",
                        "org.freedesktop.Secret.Service",
                        method,
                        arguments);
  disconnect(connection);
  require(answer != nullptr, std::string(method) + " failed");
  return answer;
}

}  // namespace

bool SessionBus::isInstalled() {
  return ::access(busProgram, X_OK) == 0 && ::access(keyringProgram, X_OK) == 0;
}

SessionBus::SessionBus() {
  std::array<int, 2> ends{};
  require(::pipe2(ends.data(), O_CLOEXEC) == 0, "no pipe");
  bus_ = spawn({busProgram,
                "--nofork",
                "--print-address",
                "--config-file=" + home_.write("bus.conf", busConfiguration(home_.path()))},
               {"HOME=" + home_.path()},
               {-1, ends[1], -1});
  ::close(ends[1]);
  std::array<char, 1024> buffer{};
  const ssize_t size = ::read(ends[0], buffer.data(), buffer.size());
  ::close(ends[0]);
  if (size > 1)
    address_.assign(buffer.data(), static_cast<std::size_t>(size - 1));
  // No thread that reads the environment runs now. NOLINTNEXTLINE(concurrency-mt-unsafe)
  ::setenv(addressVariable, address_.c_str(), 1);
}

SessionBus::~SessionBus() {
  stopKeyring();
  end(bus_);
  // NOLINTNEXTLINE(concurrency-mt-unsafe)
  ::unsetenv(addressVariable);
}

void SessionBus::startKeyring() {
  std::array<int, 2> ends{};
  require(::pipe2(ends.data(), O_CLOEXEC) == 0, "no pipe");
  keyring_ = spawn({keyringProgram, "--foreground", "--unlock", "--components=secrets"},
                   {"HOME=" + home_.path(),
                    "XDG_RUNTIME_DIR=" + home_.makeDirectory("runtime"),
                    std::string(addressVariable) + "=" + address_},
                   {ends[0], -1, -1});
  ::close(ends[0]);
  const bool written = ::write(ends[1], "pw", 2) == 2;
  ::close(ends[1]);
  require(written, "no password");
  awaitName(address_, secretService);
}

void SessionBus::stopKeyring() {
  end(keyring_);
}

void SessionBus::lockKeyring() const {
  const char* const keyrings[] = {"/org/freedesktop/secrets/collection/login", nullptr};
  callService(address_, "Lock", g_variant_new("(^ao)", keyrings));
}

std::size_t SessionBus::secretCount(const std::string& service) const {
  GVariantBuilder attributes;
  g_variant_builder_init(&attributes, G_VARIANT_TYPE("a{ss}"));
  g_variant_builder_add(&attributes, "{ss}", "service", service.c_str());
  const Variant answer =
      callService(address_, "SearchItems", g_variant_new("(a{ss})", &attributes));
  std::size_t count = 0;
  // Those in keyrings that are open, then the others.
  for (const gsize part : {gsize{0}, gsize{1}}) {
    const Variant paths(g_variant_get_child_value(answer.get(), part), &g_variant_unref);
    count += g_variant_n_children(paths.get());
  }
  return count;
}

struct SessionBus::Impostor::State {
  GDBusConnection* connection = nullptr;
  Manner manner = Manner::mute;
  std::atomic<bool> called = false;
  std::atomic<bool> pressed = false;

  // What one who is locked says; nothing where it is not prepared.
  GVariant* answer(const std::string& method, const std::string& argument) {
    if (method == "OpenSession" && argument == "plain")
      return g_variant_new_parsed("(<''>, @o '/session')");
    if (method == "GetAll" && argument == "org.freedesktop.Secret.Service")
      return g_variant_new_parsed("({'Collections': <[@o '/keyring']>},)");
    if (method == "GetAll" && argument == "org.freedesktop.Secret.Collection")
      return g_variant_new_parsed("({'Locked': <true>, 'Items': <@ao []>},)");
    if (method == "ReadAlias")
      return g_variant_new_parsed("(@o '/keyring',)");
    pressed = pressed || method == "SearchItems" || method == "Unlock" || method == "CreateItem";
    return nullptr;
  }

  void reply(GDBusMessage* call) {
    GVariant* const body = g_dbus_message_get_body(call);
    GVariant* const first = body != nullptr && g_variant_n_children(body) > 0
                                ? g_variant_get_child_value(body, 0)
                                : nullptr;
    const bool isText = first != nullptr && g_variant_is_of_type(first, G_VARIANT_TYPE_STRING) != 0;
    GVariant* const said =
        answer(g_dbus_message_get_member(call), isText ? g_variant_get_string(first, nullptr) : "");
    if (first != nullptr)
      g_variant_unref(first);
    GDBusMessage* const message =
        said != nullptr ? g_dbus_message_new_method_reply(call)
                        : g_dbus_message_new_method_error_literal(
                              call, "org.freedesktop.DBus.Error.NotSupported", "not here");
    if (said != nullptr)
      g_dbus_message_set_body(message, said);
    g_dbus_connection_send_message(
        connection, message, G_DBUS_SEND_MESSAGE_FLAGS_NONE, nullptr, nullptr);
    g_object_unref(message);
  }
};

SessionBus::Impostor::Impostor(const SessionBus& bus, const std::string& name, Manner manner)
    : state_(std::make_shared<State>()) {
  state_->connection = connect(bus.address_);
  state_->manner = manner;
  require(callBus(state_->connection,
                  "RequestName",
                  g_variant_new("(su)", name.c_str(), G_BUS_NAME_OWNER_FLAGS_NONE)) != nullptr,
          "no name for the impostor");
  // On GIO's own thread, which may come a last time when the filter has been taken away.
  g_dbus_connection_add_filter(
      state_->connection,
      [](GDBusConnection* connection, GDBusMessage* message, gboolean incoming, gpointer data) {
        if (incoming == FALSE ||
            g_dbus_message_get_message_type(message) != G_DBUS_MESSAGE_TYPE_METHOD_CALL)
          return message;
        State& state = **static_cast<std::shared_ptr<State>*>(data);
        state.called = true;
        if (state.manner == Manner::leaves)
          g_dbus_connection_close(connection, nullptr, nullptr, nullptr);
        else if (state.manner == Manner::locked)
          state.reply(message);
        g_object_unref(message);
        return static_cast<GDBusMessage*>(nullptr);
      },
      new std::shared_ptr<State>(state_),
      [](gpointer data) { delete static_cast<std::shared_ptr<State>*>(data); });
}

SessionBus::Impostor::~Impostor() {
  disconnect(state_->connection);
}

bool SessionBus::Impostor::wasCalled() const {
  return state_->called;
}

bool SessionBus::Impostor::wasPressed() const {
  return state_->pressed;
}

}  // namespace tessivane
