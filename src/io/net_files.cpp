// Whole NET sources and files: parsing a domain, the classes of a file or a
// node list, and writing domains and collections to streams and files.
#include "io/net_files.h"

#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "api/boundary.h"
#include "api/locale_guard.h"
#include "io/net_parser.h"
#include "io/net_writer.h"
#include "model/domain.h"
#include "oo/class.h"

namespace orvel {
namespace {

// A parse that met a failing read failed with io, whatever the parser made
// of the tokens that the failure cut short.
ov_status_t read_status(const ParseContext &ctx, ov_status_t status) noexcept {
  if (!ctx.read_failed) return status;
  set_error(ov_error_io);
  return ov_error_io;
}

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
  if (format < 0) {
    // The probe reads with no handler of its own; a stream that cannot be
    // read is worth a word to the caller's.
    if (handler != nullptr && file != nullptr && std::ferror(file)) handler(1, read_failure_message, data);
    return nullptr;
  }
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
    status = read_status(parser->ctx, status);
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

// Opens a file for writing, runs `write` on it and closes it; io when the
// file does not open or close.
template <class F> ov_status_t write_file(const char *file_name, F &&write) {
  std::FILE *stream = std::fopen(file_name, "w");
  if (stream == nullptr) return fail(ov_error_io);
  ov_status_t status = write(stream);
  if (std::fclose(stream) != 0 && status == ov_error_none) status = fail(ov_error_io);
  if (status != ov_error_none) set_error(static_cast<unsigned>(status));
  return status;
}

} // namespace

Domain *net_parse_source(std::FILE *file, const char *string, ov_parse_error_handler_t handler, void *data) noexcept {
  return guarded<Domain *>(nullptr, [&]() -> Domain * {
    LocaleGuard guard;
    if (!guard.ok()) return nullptr;
    Domain *domain = parse_domain_source(file, string, handler, data);
    if (domain != nullptr) set_error(ov_error_none);
    return domain;
  });
}

Domain *net_parse_simple_source(std::FILE *file, const char *string, ov_simple_error_handler_t handler) noexcept {
  ov_simple_error_handler_t simple = handler;
  return net_parse_source(file, string, handler != nullptr ? simple_error_adapter : nullptr, &simple);
}

Domain *net_parse_domain_file(const char *file_name, ov_parse_error_handler_t handler, void *data) noexcept {
  std::FILE *file = std::fopen(file_name, "r");
  if (file == nullptr) return set_error(ov_error_io), nullptr;
  Domain *domain = net_parse_source(file, nullptr, handler, data);
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

ov_status_t net_parse_class_file(const char *file_name, ClassCollection *collection, ov_class_loader_t loader,
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
    status = read_status(parser->ctx, parse_class_file(*parser));
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

Node **net_parse_node_file(Domain *scope, const char *file_name, ov_parse_error_handler_t handler, void *data) {
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
  status = read_status(ctx, status);
  if (std::fclose(file) != 0 && status == ov_error_none) status = ov_error_io;
  if (status != ov_error_none) return set_error(status), nullptr;
  list[count] = nullptr;
  void *exact = mem_shrink(list.get(), static_cast<Size>(size_multiply(size_add(count, 1), sizeof(ov_node_t))));
  (void)list.release();
  set_error(ov_error_none);
  return static_cast<ov_node_t *>(exact);
}

ov_status_t net_write_stream(Domain *domain, std::FILE *stream) {
  LocaleGuard guard;
  if (!guard.ok()) return static_cast<ov_status_t>(ov_error_code());
  ov_status_t status = net_write(domain, stream);
  if (std::fflush(stream) != 0 && status == ov_error_none) status = fail(ov_error_io);
  return status;
}

ov_status_t net_save_file(Domain *domain, const char *file_name) {
  // A domain that cannot be written leaves the file untouched.
  if (check_writable(domain) != ov_error_none) return ov_error_code();
  // The stream is written under its own firewall, so that the file is
  // closed whatever the writing throws.
  ov_status_t status = write_file(file_name, [&](std::FILE *stream) {
    set_error(ov_error_none);
    return guarded_status([&] { return net_write_stream(domain, stream); });
  });
  if (status == ov_error_none) domain->file_name.emplace(file_name);
  return status;
}

ov_status_t net_save_collection_file(ClassCollection *collection, const char *file_name) {
  LocaleGuard guard;
  if (!guard.ok()) return static_cast<ov_status_t>(ov_error_code());
  for (std::uint32_t i = 0; i < collection->count(); ++i)
    if (check_writable(collection->member(i)) != ov_error_none) return ov_error_code();
  ov_status_t status =
      write_file(file_name, [&](std::FILE *stream) { return net_write_collection(collection, stream); });
  if (status == ov_error_none)
    for (std::uint32_t i = 0; i < collection->count(); ++i) collection->member(i)->file_name.emplace(file_name);
  return status;
}

} // namespace orvel
