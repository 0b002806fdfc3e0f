// Class collections, class lifetime and class names.
#include "oo/class.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include "api/error.h"
#include "api/locale_guard.h"
#include "model/domain.h"
#include "model/node.h"

ov_class_collection_s::~ov_class_collection_s() {
  while (count() > 0) {
    // Delete first a class that nothing instantiates, so that no instance
    // node ever refers to a deleted class.
    std::uint32_t i = 0;
    while (i < count() && !member(i)->class_info.instances.empty()) ++i;
    if (i == count()) {
      // Only a cyclic hierarchy gets here, and the operations never make
      // one; cut the links rather than loop for ever.
      i = 0;
      for (orvel::Node *instance : member(i)->class_info.instances) instance->instance_class = nullptr;
      member(i)->class_info.instances.clear();
    }
    orvel::class_delete(member(i));
  }
}

namespace orvel {

namespace {

// Appends a class to the collection; the caller has made room for it.
void cc_append(ClassCollection *collection, Domain *cls) noexcept {
  collection->members.back() = as_class(cls);
  collection->members.push_back(nullptr);
  cls->class_info.collection = collection;
}

} // namespace

Domain *cc_new_class(ClassCollection *collection) {
  auto cls = std::make_unique<Domain>();
  collection->members.reserve(collection->members.size() + 1);
  cc_append(collection, cls.get());
  set_error(ov_error_none);
  return cls.release();
}

ov_status_t cc_add_domain(ClassCollection *collection, Domain *domain) {
  collection->members.reserve(collection->members.size() + 1);
  domain_uncompile(domain);
  // The record keeps no case data yet; when cases are stored, they are
  // dropped here, since a class holds none.
  cc_append(collection, domain);
  return set_error(ov_error_none);
}

Domain *cc_find_class(const ClassCollection *collection, const char *name) noexcept {
  for (std::uint32_t i = 0; i < collection->count(); ++i) {
    Domain *cls = collection->member(i);
    if (cls->class_info.name && std::strcmp(cls->class_info.name->c_str(), name) == 0) return cls;
  }
  return nullptr;
}

void class_delete(Domain *cls) noexcept {
  ClassCollection *collection = cls->class_info.collection;
  if (collection != nullptr) {
    auto &members = collection->members;
    members.erase(std::find(members.begin(), members.end() - 1, as_class(cls)));
    cls->class_info.collection = nullptr;
  }
  // The record's destructor takes its instance nodes off the instance lists
  // of the classes they instantiate, which live on.
  domain_uncompile(cls);
  delete cls;
}

ov_status_t class_set_name(Domain *cls, const char *name) {
  if (cls->class_info.name && *cls->class_info.name == name) return set_error(ov_error_none);
  if (cc_find_class(cls->class_info.collection, name) != nullptr) return fail(ov_error_twice);
  {
    LocaleGuard guard;
    if (!guard.ok()) return ov_error_code();
    if (!name_is_valid(name)) return fail(ov_error_invalid_name);
  }
  std::string copy(name); // made first, so that a failure keeps the old name
  cls->class_info.name = std::move(copy);
  return set_error(ov_error_none);
}

const char *class_get_name(Domain *cls) {
  if (cls->class_info.name) return cls->class_info.name->c_str();
  char text[64 + 8];
  ov_status_t status = ov_error_twice;
  for (std::uint64_t i = 1; status == ov_error_twice; ++i) {
    std::snprintf(text, sizeof text, "C%s", format_count(cls, i));
    status = class_set_name(cls, text);
  }
  return status == ov_error_none ? cls->class_info.name->c_str() : nullptr;
}

} // namespace orvel
