#pragma once

// The program's settings, kept in one JSON file. Values are in memory; each change re-reads the
// file under a lock that all processes of the program take, and replaces it, so that two of them
// which change different keys lose neither. A change made by another process is noticed within
// moments.
//
// Safe as `UserDefaults` says. The queue must outlive it, and it must be destroyed on the queue's
// thread. Setting a changed value waits for the disk: some milliseconds.

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/TaskQueue.h"
#include "platform/UserDefaults.h"

namespace tessivane {

class FileUserDefaults final : public UserDefaults {
 public:
  /// Takes whole sentences, each once, that tell of trouble with the file. Called on any thread; it
  /// must not use the settings.
  using Report = std::function<void(const std::string& sentence)>;

  /// Where the settings of this user are: "Tessivane/defaults.json" in the configuration directory.
  static std::string standardPath();

  /// Reads the file and watches it from then on. A missing one means that nothing is set.
  ///
  /// One that cannot be understood is renamed to "{path}.unreadable-{n}" and counts as missing; one
  /// that is spoiled later on leaves the values as they were and is renamed before the next change.
  /// Nothing overwrites it. Where the file cannot be written, changes last as long as this object
  /// and are saved with the first change that can be.
  FileUserDefaults(std::string path, TaskQueue& queue, Report report);
  FileUserDefaults(const FileUserDefaults&) = delete;
  FileUserDefaults& operator=(const FileUserDefaults&) = delete;
  ~FileUserDefaults() override;

  std::optional<DefaultsValue> value(std::string_view key) const override;
  void set(std::string_view key, DefaultsValue value) override;
  void remove(std::string_view key) override;
  Subscription subscribe(std::function<void()> changed) override;

 private:
  class Store;
  std::unique_ptr<Store> store_;
};

}  // namespace tessivane
