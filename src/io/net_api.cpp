// Exported calls that read NET files, NET text and node-list files.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "api/boundary.h"
#include "api/locale_guard.h"
#include "io/net_parser.h"
#include "model/domain.h"
#include "oo/class.h"

using namespace orvel;

namespace {

// Deletes a domain whose parse failed, keeping the first recorded code.
void discard_domain(Domain *domain) noexcept {
  const ov_error_t code = ov_error_code();
  ov_domain_delete(domain);
  set_error(code);
}

// Parses one source (a stream or a string) into a new domain, probing which
// of the two NET grammars it uses. The caller holds the "C" locale.
Domain *parse_domain_source(std::FILE *file, const char *string, ov_parse_error_handler_t handler, void *data) {
  const int format = probe_net_format(file, string);
  if (format < 0) return nullptr;
  Domain *domain = ov_new_domain();
  if (domain == nullptr) return nullptr;
  TokenFunction tokens = format == 0 ? scan_data_token : scan_net_token;
  ov_status_t status;
  try {
    auto parser =
        file != nullptr ? std::make_unique<NetParser>(file, tokens) : std::make_unique<NetParser>(string, tokens);
    parser->ctx.error_handler = handler;
    parser->ctx.handler_data = data;
    parser->ctx.domain = domain;
    parser->scope = domain;
    status = format == 0 ? parse_old_net(*parser) : parse_net_blocks(*parser);
  } catch (...) {
    discard_domain(domain);
    throw;
  }
  if (status != ov_error_none) {
    discard_domain(domain);
    return nullptr;
  }
  return domain;
}

ov_domain_t parse_guarded(std::FILE *file, const char *string, ov_parse_error_handler_t handler, void *data) {
  return guarded<ov_domain_t>(nullptr, [&]() -> ov_domain_t {
    LocaleGuard guard;
    if (!guard.ok()) return nullptr;
    Domain *domain = parse_domain_source(file, string, handler, data);
    if (domain != nullptr) set_error(ov_error_none);
    return domain;
  });
}

// Removes the classes added to a collection since it held `old_count`,
// each one once nothing instantiates it. Error if some cannot go.
ov_status_t remove_added_classes(ClassCollection *collection, std::uint32_t old_count) noexcept {
  while (collection->count() > old_count) {
    Domain *victim = nullptr;
    for (std::uint32_t i = old_count; i < collection->count(); ++i) {
      Domain *cls = collection->member(i);
      if (cls->class_info.instances.empty()) {
        victim = cls;
        break;
      }
    }
    if (victim == nullptr) return ov_error_error;
    class_delete(victim);
  }
  return ov_error_none;
}

ov_status_t parse_classes(const char *file_name, ClassCollection *collection, ov_class_loader_t loader,
                          ov_parse_error_handler_t handler, void *data) {
  LocaleGuard guard;
  if (!guard.ok()) return ov_error_code();
  std::FILE *file = std::fopen(file_name, "r");
  if (file == nullptr) return fail(ov_error_io);
  const std::uint32_t old_count = collection->count();
  ov_status_t status;
  try {
    auto parser = std::make_unique<NetParser>(file, scan_net_token);
    parser->ctx.error_handler = handler;
    parser->ctx.handler_data = data;
    parser->ctx.class_collection = collection;
    parser->ctx.class_loader = loader;
    parser->ctx.class_loader_data = data;
    parser->file_name = file_name;
    status = parse_class_file(*parser);
  } catch (...) {
    std::fclose(file);
    remove_added_classes(collection, old_count);
    throw;
  }
  if (std::fclose(file) != 0 && status == ov_error_none) status = ov_error_io;
  if (status != ov_error_none) {
    if (remove_added_classes(collection, old_count) != ov_error_none) status = ov_error_error;
    return fail(static_cast<ov_error_t>(status));
  }
  return set_error(ov_error_none);
}

// The nodes named in a file, in file order, as a null-terminated array the
// caller frees.
ov_node_t *parse_node_file(Domain *scope, const char *file_name, ov_parse_error_handler_t handler, void *data) {
  LocaleGuard guard;
  if (!guard.ok()) return nullptr;
  std::FILE *file = std::fopen(file_name, "r");
  if (file == nullptr) return set_error(ov_error_io), nullptr;
  ParseContext ctx(file, scan_net_token);
  ctx.error_handler = handler;
  ctx.handler_data = data;
  ctx.domain = scope;
  Size capacity = size_add(scope->node_count(), 1);
  Buffer<ov_node_t> list = alloc_array<ov_node_t>(capacity);
  Size count = 0;
  ov_status_t status = list ? ov_error_none : ov_error_no_memory;
  while (status == ov_error_none) {
    const std::uint32_t before = ctx.error_count;
    int token = ctx.next_token(&ctx);
    if (token == tok_eof) break;
    if (token != tok_name) {
      if (token == tok_error && ctx.error_count != before) {
        status = ov_error_code() == ov_error_none ? ov_error_parse : ov_error_code();
      } else {
        parse_report(&ctx, "node name expected");
        status = ov_error_parse;
      }
      break;
    }
    Node *node = domain_find_node(scope, ctx.text_or_empty());
    if (node == nullptr) {
      parse_reportf(&ctx, "node `%s' not found", message_name(ctx.text_or_empty()).text);
      status = ov_error_parse;
      break;
    }
    if (size_add(count, 1) >= capacity) {
      Size grown = size_multiply(2, capacity);
      void *block = mem_realloc(list.get(), static_cast<Size>(size_multiply(grown, sizeof(ov_node_t))));
      if (block == nullptr) {
        status = ov_error_no_memory;
        break;
      }
      (void)list.release();
      list.reset(static_cast<ov_node_t *>(block));
      capacity = grown;
    }
    list[count++] = node;
  }
  if (std::fclose(file) != 0 && status == ov_error_none) status = ov_error_io;
  if (status != ov_error_none) return set_error(status), nullptr;
  list[count] = nullptr;
  void *exact = mem_shrink(list.get(), static_cast<Size>(size_multiply(size_add(count, 1), sizeof(ov_node_t))));
  (void)list.release();
  set_error(ov_error_none);
  return static_cast<ov_node_t *>(exact);
}

} // namespace

extern "C" {

ov_domain_t ov_net_parse_domain(ov_string_t file_name, ov_parse_error_handler_t handler, void *data) {
  if (check_usage(file_name == nullptr)) return nullptr;
  std::FILE *file = std::fopen(file_name, "r");
  if (file == nullptr) return set_error(ov_error_io), nullptr;
  ov_domain_t domain = parse_guarded(file, nullptr, handler, data);
  if (std::fclose(file) != 0) {
    if (domain != nullptr) {
      ov_domain_delete(domain);
      set_error(ov_error_io);
    }
    return nullptr;
  }
  if (domain == nullptr) return nullptr;
  const bool named = guarded<bool>(false, [&] {
    domain->file_name.emplace(file_name);
    return true;
  });
  if (!named) {
    discard_domain(domain);
    return nullptr;
  }
  set_error(ov_error_none);
  return domain;
}

ov_domain_t ov_net_parse(FILE *file, ov_simple_error_handler_t handler) {
  if (check_usage(file == nullptr)) return nullptr;
  ov_simple_error_handler_t simple = handler;
  return parse_guarded(file, nullptr, handler != nullptr ? simple_error_adapter : nullptr, &simple);
}

ov_domain_t ov_net_parse_from_string(ov_string_t text, ov_simple_error_handler_t handler) {
  if (check_usage(text == nullptr)) return nullptr;
  ov_simple_error_handler_t simple = handler;
  return parse_guarded(nullptr, text, handler != nullptr ? simple_error_adapter : nullptr, &simple);
}

ov_status_t ov_net_parse_classes(ov_string_t file_name, ov_class_collection_t collection, ov_class_loader_t loader,
                                 ov_parse_error_handler_t handler, void *data) {
  if (check_usage(file_name == nullptr || collection == nullptr)) return ov_error_usage;
  return guarded_status([&] { return parse_classes(file_name, collection, loader, handler, data); });
}

ov_node_t *ov_domain_parse_nodes(ov_domain_t domain, ov_string_t file_name, ov_parse_error_handler_t handler,
                                 void *data) {
  if (check_usage(domain == nullptr || file_name == nullptr)) return nullptr;
  return guarded<ov_node_t *>(nullptr, [&] { return parse_node_file(domain, file_name, handler, data); });
}

ov_node_t *ov_class_parse_nodes(ov_class_t cls, ov_string_t file_name, ov_parse_error_handler_t handler, void *data) {
  if (check_usage(cls == nullptr || !as_domain(cls)->is_class() || file_name == nullptr)) return nullptr;
  return guarded<ov_node_t *>(nullptr, [&] { return parse_node_file(as_domain(cls), file_name, handler, data); });
}

} // extern "C"
