// JSON texts: objects and arrays written member by member.
#pragma once

#include <string>
#include <string_view>

#include "text/text.h"

namespace rast {

// The text in quotation marks, with the escapes that JSON needs. Bytes that are no UTF-8 become
// U+FFFD.
std::string jsonString(std::string_view text);

class JsonObject {
 public:
  JsonObject& add(std::string_view name, std::string_view text) {
    return addRaw(name, jsonString(text));
  }
  JsonObject& add(std::string_view name, const std::string& text) {
    return add(name, std::string_view(text));
  }
  JsonObject& add(std::string_view name, const char* text) {
    return add(name, std::string_view(text));
  }
  JsonObject& add(std::string_view name, bool value) {
    return addRaw(name, value ? "true" : "false");
  }
  template <class Number>
  requires std::is_integral_v<Number> JsonObject& add(std::string_view name, Number number) {
    return addRaw(name, join(number));
  }
  // A value that is JSON already.
  JsonObject& addRaw(std::string_view name, std::string_view json) {
    members_ += join(members_.empty() ? "" : ", ", jsonString(name), ": ", json);
    return *this;
  }
  std::string text() const { return join('{', members_, '}'); }

 private:
  std::string members_;
};

class JsonArray {
 public:
  JsonArray& add(std::string_view text) { return addRaw(jsonString(text)); }
  JsonArray& addRaw(std::string_view json) {
    items_ += join(items_.empty() ? "" : separator_, json);
    return *this;
  }
  std::string text() const { return join('[', items_, ']'); }

  explicit JsonArray(const char* separator = ", ") : separator_(separator) {}

 private:
  const char* separator_;
  std::string items_;
};

}  // namespace rast
