// Key and value pairs that domains, classes and nodes carry for the
// application and write to their files.
#pragma once

#include <memory>
#include <string>

#include "orvel.h"

struct ov_attribute_s {
  std::string key;
  std::string value;
  std::unique_ptr<ov_attribute_s> next;
};

namespace orvel {

using Attribute = ov_attribute_s;

// A list of attributes, newest first.
struct AttributeList {
  std::unique_ptr<Attribute> first;

  AttributeList() = default;
  AttributeList(const AttributeList &) = delete;
  AttributeList &operator=(const AttributeList &) = delete;
  // Unlinks iteratively, so that a long list cannot exhaust the stack.
  ~AttributeList() {
    while (first) first = std::move(first->next);
  }
};

// The value stored under `key`, or null.
const char *attribute_get(const AttributeList &list, const char *key) noexcept;
// Sets or (with a null value) removes a key. With `check_name` the key must
// have the form of a C identifier (invalid_name otherwise); the parsers turn
// the test off. On failure the list is unchanged.
ov_status_t attribute_set(AttributeList &list, const char *key, const char *value, bool check_name);

} // namespace orvel
