// Attribute lists: newest key first, a replaced value keeps its place.
#include "model/attribute.h"

#include <cstring>

#include "api/error.h"
#include "api/locale_guard.h"
#include "model/node.h"

namespace orvel {

const char *attribute_get(const AttributeList &list, const char *key) noexcept {
  for (const Attribute *a = list.first.get(); a != nullptr; a = a->next.get())
    if (a->key == key) return a->value.c_str();
  return nullptr;
}

ov_status_t attribute_set(AttributeList &list, const char *key, const char *value, bool check_name) {
  if (check_name) {
    LocaleGuard guard;
    if (!guard.ok()) return ov_error_code();
    if (!name_is_valid(key)) return fail(ov_error_invalid_name);
  }
  if (value == nullptr) {
    for (std::unique_ptr<Attribute> *link = &list.first; *link; link = &(*link)->next)
      if ((*link)->key == key) {
        *link = std::move((*link)->next);
        break;
      }
    return set_error(ov_error_none);
  }
  std::string copy(value);
  for (Attribute *a = list.first.get(); a != nullptr; a = a->next.get())
    if (a->key == key) {
      a->value = std::move(copy);
      return set_error(ov_error_none);
    }
  auto entry = std::make_unique<Attribute>();
  entry->key = key;
  entry->value = std::move(copy);
  entry->next = std::move(list.first);
  list.first = std::move(entry);
  return set_error(ov_error_none);
}

} // namespace orvel
