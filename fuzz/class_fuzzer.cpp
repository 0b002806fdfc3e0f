// Fuzz target: class files read with a class loader, written and read back.
//
// The input is a class file, optionally followed by a line starting with
// "%%%" and a second class file, the library. Classes that the first file
// instantiates without defining them come from the loader, which knows a
// fixed set of classes (Mechanic, and Pair made of two Mechanics) and
// otherwise reads the library, so the fuzzer shapes both sides of a
// loaded instance.
//
// Oracles, besides the sanitizers: a failure leaves a code and the
// collection as it was (empty); a success leaves none. A collection that
// reads is saved as NET text, or refused with format when the text cannot
// carry it; saved text must read back into a new collection without a
// loader, and after one reading saving is a fixed point.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <unistd.h>

#include "orvel.h"

namespace {

void check(bool condition, const char *what) {
  if (condition) return;
  std::fprintf(stderr, "oracle failed: %s\n", what);
  std::abort();
}

void handler(std::uint32_t, ov_string_t message, void *) {
  check(message != nullptr && std::strlen(message) < 512, "bad message");
}

const char *const mechanic = "class Mechanic\n{\n inputs = (Skill);\n outputs = (Fixed);\n"
                             " node Skill { states = (\"low\" \"high\"); }\n"
                             " node Fixed { states = (\"no\" \"yes\"); }\n"
                             " potential (Skill) { data = (0.5 0.5); }\n"
                             " potential (Fixed | Skill) { data = ((0.6 0.4) (0.1 0.9)); }\n}\n";
const char *const pair = "class Pair\n{\n inputs = (Skill);\n outputs = (Either);\n"
                         " node Skill { states = (\"low\" \"high\"); }\n"
                         " instance A : Mechanic (Skill = Skill; AFixed = Fixed) {}\n"
                         " instance B : Mechanic (Skill = Skill) { label = \"second\"; }\n"
                         " node Either { states = (\"no\" \"yes\"); }\n"
                         " potential (Either | AFixed B.Fixed) { data = (((1 0) (0 1)) ((0 1) (0 1))); }\n}\n";

// A directory of this process's own for the files of one run.
const std::string &directory() {
  static const std::string path = [] {
    const char *tmp = std::getenv("TMPDIR");
    std::string pattern = std::string(tmp != nullptr && *tmp != 0 ? tmp : "/tmp") + "/orvel_class_fuzz_XXXXXX";
    check(mkdtemp(pattern.data()) != nullptr, "no temporary directory");
    return pattern;
  }();
  return path;
}

std::string path_of(const char *name) { return directory() + "/" + name; }

bool write_text(const std::string &path, const char *text, std::size_t size) {
  std::FILE *f = std::fopen(path.c_str(), "wb");
  if (f == nullptr) return false;
  const bool written = std::fwrite(text, 1, size, f) == size;
  return std::fclose(f) == 0 && written;
}

std::string read_text(const std::string &path) {
  std::string text;
  if (std::FILE *f = std::fopen(path.c_str(), "rb")) {
    char buffer[4096];
    std::size_t n;
    while ((n = std::fread(buffer, 1, sizeof buffer, f)) > 0) text.append(buffer, n);
    std::fclose(f);
  }
  return text;
}

struct LoaderState {
  bool have_library = false;
  int depth = 0;
};

// Serves a fixed class by name, or reads the library. Nested loads (a
// library class that instantiates another) are bounded.
void loader(ov_string_t name, ov_class_collection_t collection, void *data) {
  auto *state = static_cast<LoaderState *>(data);
  if (state->depth >= 4) return;
  ++state->depth;
  if (std::strcmp(name, "Mechanic") == 0 || std::strcmp(name, "Pair") == 0) {
    ov_net_parse_classes(path_of(name).c_str(), collection, loader, handler, data);
  } else if (state->have_library) {
    ov_net_parse_classes(path_of("library.net").c_str(), collection, loader, handler, data);
  }
  --state->depth;
}

std::uint32_t member_count(ov_class_collection_t collection) {
  std::uint32_t n = 0;
  for (ov_class_t *c = ov_cc_get_members(collection); *c != nullptr; ++c) ++n;
  return n;
}

// Saves `collection' to `path' and reads it back without a loader
// (everything an instance needs is in the file); null when it does not save.
ov_class_collection_t save_and_read(ov_class_collection_t collection, const std::string &path) {
  // What the text form cannot carry (a number that is not finite, say) is
  // refused with format, and only with format.
  if (ov_cc_save_as_net(collection, path.c_str()) != ov_error_none) {
    check(ov_error_code() == ov_error_format, "a collection that read does not save");
    return nullptr;
  }
  ov_class_collection_t again = ov_new_class_collection();
  if (ov_net_parse_classes(path.c_str(), again, nullptr, handler, nullptr) != ov_error_none) {
    std::fprintf(stderr, "saved text that does not read back (%s):\n%s\n", ov_error_name(ov_error_code()),
                 read_text(path).c_str());
    check(false, "saved classes do not read back");
  }
  check(member_count(again) == member_count(collection), "saved classes read back as another number");
  return again;
}

// Saved text reads back, and after one reading the text is a fixed point.
// (Not the first text: a chance node without table is written as an empty
// potential, and reading that gives it a table of initial contents.)
void round_trip(ov_class_collection_t collection) {
  const std::string first = path_of("saved1.net"), second = path_of("saved2.net"), third = path_of("saved3.net");
  ov_class_collection_t again = save_and_read(collection, first);
  if (again == nullptr) return;
  ov_class_collection_t twice = save_and_read(again, second);
  check(twice != nullptr, "read-back classes do not save");
  check(ov_cc_save_as_net(twice, third.c_str()) == ov_error_none, "classes read back twice do not save");
  const std::string b = read_text(second), c = read_text(third);
  if (b != c) std::fprintf(stderr, "second save:\n%s\nthird save:\n%s\n", b.c_str(), c.c_str());
  check(b == c, "saving the read-back classes gives other text");
  ov_cc_delete(twice);
  ov_cc_delete(again);
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
  check(write_text(path_of("Mechanic"), mechanic, std::strlen(mechanic)), "cannot write a fixed class");
  check(write_text(path_of("Pair"), pair, std::strlen(pair)), "cannot write a fixed class");
  std::atexit([] {
    for (const char *name : {"Mechanic", "Pair", "input.net", "library.net", "saved1.net", "saved2.net"})
      std::remove(path_of(name).c_str());
    rmdir(directory().c_str());
  });
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  const std::string input(reinterpret_cast<const char *>(data), size);
  const std::string::size_type split = input.find("%%%");
  LoaderState state;
  state.have_library = split != std::string::npos;
  const std::string main_text = input.substr(0, split);
  if (!write_text(path_of("input.net"), main_text.data(), main_text.size())) return 0;
  if (state.have_library) {
    const std::string library = input.substr(split + 3);
    if (!write_text(path_of("library.net"), library.data(), library.size())) return 0;
  }
  ov_class_collection_t collection = ov_new_class_collection();
  const ov_status_t status = ov_net_parse_classes(path_of("input.net").c_str(), collection, loader, handler, &state);
  if (status == ov_error_none) {
    check(ov_error_code() == ov_error_none, "success with a code");
    if (member_count(collection) > 0) round_trip(collection);
  } else {
    check(ov_error_code() != ov_error_none, "failure without a code");
    check(status == ov_error_error || member_count(collection) == 0, "a failed read left classes behind");
  }
  ov_cc_delete(collection);
  return 0;
}
