#include "platform/linux/DefaultsJSON.h"

#include <glib.h>

#include <cstddef>
#include <memory>
#include <utility>

#include <nlohmann/json.hpp>

namespace tessivane {

namespace {

using nlohmann::json;

constexpr std::string_view dataKey = "$data";
constexpr int deepest = 100;

json encoded(const DefaultsDictionary& values);

struct Encoder {
  json operator()(bool value) const { return value; }
  json operator()(double value) const { return value; }
  json operator()(const std::string& value) const { return value; }
  json operator()(const DefaultsData& value) const {
    const std::unique_ptr<char, decltype(&g_free)> text(
        g_base64_encode(reinterpret_cast<const guchar*>(value.bytes.data()), value.bytes.size()),
        &g_free);
    return json{{dataKey, text.get()}};
  }
  json operator()(const DefaultsArray& values) const {
    json result = json::array();
    for (const DefaultsValue& value : values)
      result.push_back(std::visit(*this, value.variant()));
    return result;
  }
  json operator()(const DefaultsDictionary& values) const { return encoded(values); }
};

json encoded(const DefaultsDictionary& values) {
  json result = json::object();
  for (const auto& [key, value] : values)
    result[key.starts_with('$') ? '$' + key : key] = std::visit(Encoder{}, value.variant());
  return result;
}

std::optional<DefaultsValue> decoded(const json& value, int depth);

std::optional<DefaultsDictionary> decodedDictionary(const json& object, int depth) {
  DefaultsDictionary result;
  for (const auto& [key, value] : object.items()) {
    std::optional<DefaultsValue> member = decoded(value, depth + 1);
    if (!member)
      return std::nullopt;
    result.insert_or_assign(key.starts_with('$') ? key.substr(1) : key, *std::move(member));
  }
  return result;
}

std::optional<DefaultsValue> decodedArray(const json& array, int depth) {
  DefaultsArray result;
  for (const json& value : array) {
    std::optional<DefaultsValue> element = decoded(value, depth + 1);
    if (!element)
      return std::nullopt;
    result.push_back(*std::move(element));
  }
  return result;
}

std::optional<DefaultsValue> decodedObject(const json& object, int depth) {
  const auto data = object.find(dataKey);
  if (data == object.end()) {
    std::optional<DefaultsDictionary> dictionary = decodedDictionary(object, depth);
    if (!dictionary)
      return std::nullopt;
    return *std::move(dictionary);
  }
  if (!data->is_string())
    return std::nullopt;
  std::size_t size = 0;
  const std::unique_ptr<guchar, decltype(&g_free)> bytes(
      g_base64_decode(data->get_ref<const std::string&>().c_str(), &size), &g_free);
  return DefaultsData{.bytes = std::string(reinterpret_cast<const char*>(bytes.get()), size)};
}

std::optional<DefaultsValue> decoded(const json& value, int depth) {
  if (depth > deepest)
    return std::nullopt;
  if (value.is_boolean())
    return value.get<bool>();
  if (value.is_number())
    return value.get<double>();
  if (value.is_string())
    return value.get<std::string>();
  if (value.is_array())
    return decodedArray(value, depth);
  if (value.is_object())
    return decodedObject(value, depth);
  return std::nullopt;
}

}  // namespace

std::string defaultsJSON(const DefaultsDictionary& values) {
  return encoded(values).dump(2, ' ', false, json::error_handler_t::replace) + '\n';
}

std::optional<DefaultsDictionary> defaultsFromJSON(std::string_view text) {
  const json parsed = json::parse(text, nullptr, false);
  if (!parsed.is_object())
    return std::nullopt;
  DefaultsDictionary result;
  for (const auto& [key, value] : parsed.items()) {
    if (std::optional<DefaultsValue> decodedValue = decoded(value, 0))
      result.insert_or_assign(key.starts_with('$') ? key.substr(1) : key, *std::move(decodedValue));
  }
  return result;
}

}  // namespace tessivane
