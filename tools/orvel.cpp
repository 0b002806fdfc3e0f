// orvel: the command-line face of the library. It loads a network, compiles
// it, enters evidence, propagates and prints results, or converts files. It
// uses only the public C interface.
#include <orvel.h>

#include "data_columns.h"

#include <cctype>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <random>
#include <spawn.h>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr int exit_ok = 0;
constexpr int exit_usage = 1;
constexpr int exit_library = 2;

// A failure of the library: the error's name and description go to stderr.
int library_error(const std::string &what, ov_error_t code = ov_error_code()) {
  std::fprintf(stderr, "orvel: %s: %s: %s\n", what.c_str(), ov_error_name(code), ov_error_description(code));
  return exit_library;
}

// A file that cannot be used: its name and what is wrong with it.
int input_error(const std::string &file, const std::string &problem) {
  std::fprintf(stderr, "orvel: %s: %s\n", file.c_str(), problem.c_str());
  return exit_library;
}

int usage_error(const std::string &message) {
  std::fprintf(stderr, "orvel: %s\n(try 'orvel --help')\n", message.c_str());
  return exit_usage;
}

const char *const main_help = "usage: orvel COMMAND [ARGS]\n"
                              "\n"
                              "commands:\n"
                              "  beliefs NET [options]    compile, enter evidence, propagate, print beliefs\n"
                              "  marginal NET A,B,... [options]\n"
                              "                           print the joint marginal of the named nodes\n"
                              "  compile NET [options]    compile and print a summary of the junction forest\n"
                              "  convert IN OUT           read a network and write it in OUT's format\n"
                              "  simulate NET -n N -o DATA [--missing FRACTION] [--seed S]\n"
                              "                           write N cases drawn from the network to a data file\n"
                              "  learn NET DATA -o OUT [--max-iterations N] [--tolerance T]\n"
                              "                           fit the tables to the cases of a data file by EM\n"
                              "  learn-structure DATA -o OUT [--constraints FILE] [--significance LEVEL]\n"
                              "                           learn a network (edges, then tables) from a data file\n"
                              "  policy NET DECISION [-e NODE=STATE]...\n"
                              "                           the optimal policy of a decision\n"
                              "  draw NET [-e NODE=STATE]... [--junction-tree] -o FILE.svg|.png|.pdf|.dot\n"
                              "                           draw the network with its beliefs (Graphviz)\n"
                              "\n"
                              "Files ending in .kb are KB files (with the compiled state and findings),\n"
                              "in .bif, .xml or .xmlbif, and .uai are BIF, XMLBIF and UAI; any other\n"
                              "file is NET.\n"
                              "\n"
                              "A NET file of classes stands for its main class, unfolded: the last class\n"
                              "in the file, or the one named with --class NAME. Its nodes are named by\n"
                              "their path, such as First_Fixed for node Fixed of instance First.\n"
                              "\n"
                              "'orvel COMMAND --help' describes each command.\n"
                              "exit status: 0 success, 1 usage error, 2 library error or a file that\n"
                              "cannot be read or written\n";

const char *const beliefs_help =
    "usage: orvel beliefs NET [-e NODE=STATE]... [-l NODE=w1,w2,...]... [-v NODE=VALUE]...\n"
    "                         [--max] [--fast-retraction] [--limited] [--nodes A,B,...] [--json]\n"
    "\n"
    "Compiles the network, enters the evidence, propagates and prints the beliefs of\n"
    "every node (or of the nodes listed with --nodes): probabilities of discrete chance\n"
    "nodes, means and variances of continuous ones, expected utilities of decisions.\n"
    "Also prints the probability of the evidence, its logarithm and the conflict measure.\n"
    "\n"
    "  -e NODE=STATE     hard evidence; STATE is a label or #index\n"
    "  -l NODE=w1,...    a likelihood: one non-negative weight per state\n"
    "  -v NODE=VALUE     the value of a continuous node\n"
    "  --max             max-propagation (most probable configuration)\n"
    "  --fast-retraction propagate in fast-retraction mode\n"
    "  --limited         decisions know only their parents (limited memory), solved\n"
    "                    by single policy updating\n"
    "  --nodes A,B,...   print only these nodes\n"
    "  --json            print one JSON object\n";

const char *const marginal_help =
    "usage: orvel marginal NET A,B,... [-e NODE=STATE]... [-l NODE=w1,...]... [-v NODE=VALUE]...\n"
    "                                  [--json]\n"
    "\n"
    "Compiles the network, enters the evidence, propagates and prints the joint\n"
    "distribution of the listed discrete nodes, one line per configuration.\n";

const char *const policy_help = "usage: orvel policy NET DECISION [-e NODE=STATE]... [-l NODE=w1,...]... [--limited]\n"
                                "                                  [--json]\n"
                                "\n"
                                "Compiles the influence diagram, enters the evidence (a finding on a decision is a\n"
                                "decision taken), solves it and prints the optimal policy of DECISION: one line per\n"
                                "configuration of the past the choice depends on, with the option chosen and the\n"
                                "expected utility of each option there. With --limited the decisions know only\n"
                                "their parents and the policy is over the decision's parents.\n";

const char *const compile_help =
    "usage: orvel compile NET [--method clique-size|clique-weight|fill-in-size|fill-in-weight|\n"
    "                                   total-weight|best] [--approximate EPS] [--compress]\n"
    "                                   [--log FILE]\n"
    "\n"
    "Triangulates with the chosen method (default fill-in-weight; total-weight searches\n"
    "for the least total clique table size, best tries every method and keeps the\n"
    "smallest total), compiles and prints\n"
    "the number of nodes, cliques and junction trees, the largest clique, the total\n"
    "clique table size and the time taken. --approximate EPS then zeroes in each\n"
    "clique the smallest probabilities of total at most EPS and prints the mass\n"
    "removed and the non-zero clique cells before and after. --compress then drops\n"
    "the zero clique cells and prints the clique cells before and after. --log\n"
    "writes the full compile log to FILE.\n";

const char *const convert_help = "usage: orvel convert IN OUT\n"
                                 "\n"
                                 "Reads a network file and writes it to OUT: KB (with the compiled state and\n"
                                 "findings) for a name ending in .kb, BIF, XMLBIF or UAI for .bif, .xml or\n"
                                 ".xmlbif, or .uai, else NET in the block format.\n";

std::vector<std::string> split(const std::string &text, char separator) {
  std::vector<std::string> parts;
  std::string::size_type start = 0;
  for (;;) {
    auto end = text.find(separator, start);
    parts.push_back(text.substr(start, end == std::string::npos ? std::string::npos : end - start));
    if (end == std::string::npos) return parts;
    start = end + 1;
  }
}

// Parses a whole string as a double; false on trailing text.
bool parse_double(const std::string &text, double &value) {
  if (text.empty()) return false;
  char *end = nullptr;
  value = std::strtod(text.c_str(), &end);
  return end != nullptr && *end == '\0';
}

// The length of the well-formed UTF-8 sequence at `c` (shortest form, no
// surrogates, at most U+10FFFF), or 0 if there is none.
int utf8_sequence(const unsigned char *c) {
  if (c[0] < 0x80) return 1;
  int length;
  unsigned char low = 0x80, high = 0xBF; // the range of the second byte
  if (c[0] >= 0xC2 && c[0] <= 0xDF) {
    length = 2;
  } else if (c[0] >= 0xE0 && c[0] <= 0xEF) {
    length = 3;
    if (c[0] == 0xE0) low = 0xA0;
    if (c[0] == 0xED) high = 0x9F;
  } else if (c[0] >= 0xF0 && c[0] <= 0xF4) {
    length = 4;
    if (c[0] == 0xF0) low = 0x90;
    if (c[0] == 0xF4) high = 0x8F;
  } else {
    return 0;
  }
  if (c[1] < low || c[1] > high) return 0;
  for (int i = 2; i < length; ++i)
    if (c[i] < 0x80 || c[i] > 0xBF) return 0;
  return length;
}

// A JSON string. Labels and file names are bytes, and JSON text is Unicode:
// well-formed UTF-8 passes through, and every other byte is written as the
// code point of the same number (\u0080 to \u00ff), which reads Latin-1
// text, the usual encoding of such files, as what it says, and keeps
// different bytes different where a replacement character would merge them.
void print_json_string(std::FILE *out, const char *text) {
  std::fputc('"', out);
  for (const unsigned char *c = reinterpret_cast<const unsigned char *>(text); *c != 0;) {
    switch (*c) {
    case '"': std::fputs("\\\"", out); break;
    case '\\': std::fputs("\\\\", out); break;
    case '\n': std::fputs("\\n", out); break;
    case '\t': std::fputs("\\t", out); break;
    case '\r': std::fputs("\\r", out); break;
    default:
      if (*c < 0x20 || *c == 0x7F) {
        std::fprintf(out, "\\u%04x", *c);
      } else if (int length = utf8_sequence(c); length > 0) {
        std::fwrite(c, 1, static_cast<std::size_t>(length), out);
        c += length;
        continue;
      } else {
        std::fprintf(out, "\\u%04x", *c);
      }
    }
    ++c;
  }
  std::fputc('"', out);
}

// A number with enough digits to read back the same float; JSON has no
// infinities or NaN, so those print as null.
void print_json_number(std::FILE *out, double value) {
  if (std::isfinite(value))
    std::fprintf(out, "%.9g", value);
  else
    std::fputs("null", out);
}

void report_parse_error(uint32_t line, ov_string_t message, void *data) {
  std::fprintf(stderr, "%s:%u: %s\n", static_cast<const char *>(data), line, message);
}

// Whether two paths name the same existing file.
bool same_file(const std::string &a, const std::string &b) {
  struct stat sa, sb;
  return stat(a.c_str(), &sa) == 0 && stat(b.c_str(), &sb) == 0 && sa.st_dev == sb.st_dev && sa.st_ino == sb.st_ino;
}

// Inputs that the library would take for an empty network, said as what
// they are; an exit status.
int check_input(const std::string &file) {
  struct stat st;
  if (stat(file.c_str(), &st) != 0) return exit_ok; // the library says why it cannot open it
  if (S_ISDIR(st.st_mode)) return input_error(file, "is a directory");
  if (S_ISREG(st.st_mode) && st.st_size == 0) return input_error(file, "empty file");
  return exit_ok;
}

// Evidence as given on the command line, kept for the report.
struct Evidence {
  enum Kind { state, likelihood, value } kind;
  std::string node;
  std::string text;            // the state as given
  std::vector<double> weights; // likelihood
  double number = 0.0;         // continuous value
};

struct Options {
  std::string network;
  std::vector<std::string> positional;
  std::vector<Evidence> evidence;
  std::vector<std::string> nodes;
  bool max = false;
  bool fast_retraction = false;
  bool json = false;
  bool limited = false; // decisions know only their parents
  bool help = false;
  std::string method = "fill-in-weight";
  std::string log_file;
  double approximate = -1; // the epsilon of --approximate, or -1
  bool compress = false;   // --compress
  std::string class_name;  // the class to unfold, in a file of classes
};

// Deletes the domain, and the classes it was unfolded from, when it goes out
// of scope.
struct DomainHolder {
  ov_domain_t domain = nullptr;
  ov_class_collection_t classes = nullptr;
  int reported = 0; // the exit status of a failure already reported
  ~DomainHolder() {
    if (domain != nullptr) ov_domain_delete(domain);
    if (classes != nullptr) ov_cc_delete(classes);
  }
};

// Whether the first word of the file, past blanks and % comments, is
// "class".
bool is_class_file(const std::string &file) {
  std::FILE *in = std::fopen(file.c_str(), "r");
  if (in == nullptr) return false;
  int c;
  for (;;) {
    c = std::fgetc(in);
    if (c == '%') {
      while (c != '\n' && c != EOF) c = std::fgetc(in);
    } else if (c == EOF || !std::isspace(c)) {
      break;
    }
  }
  std::string word;
  while (c != EOF && (std::isalnum(c) || c == '_') && word.size() < 6) {
    word += static_cast<char>(c);
    c = std::fgetc(in);
  }
  std::fclose(in);
  return word == "class" && (c == EOF || !(std::isalnum(c) || c == '_'));
}

// Each node of a domain unfolded from a class is named after its path of
// instances and class node, such as First_Fixed, where that name is free.
void name_by_source(ov_domain_t domain) {
  for (ov_node_t node = ov_domain_get_first_node(domain); node != nullptr; node = ov_node_get_next(node)) {
    std::string name;
    for (ov_node_t *source = ov_node_get_source(node); source != nullptr && *source != nullptr; ++source) {
      ov_string_t part = ov_node_get_name(*source);
      if (part == nullptr) break;
      // Appended piece by piece: GCC 12 warns falsely on literal + string at -O3.
      if (!name.empty()) name += '_';
      name += part;
    }
    if (!name.empty() && ov_domain_get_node_by_name(domain, name.c_str()) == nullptr)
      ov_node_set_name(node, name.c_str());
  }
}

// Network files go by their extension: .kb names a KB file, .bif, .xml or
// .xmlbif and .uai the exchange formats, any other file is NET. Messages of the exchange
// readers carry their file, line and column.
enum class FileFormat { net, kb, bif, xmlbif, uai };

FileFormat format_of(const std::string &file) {
  const std::string::size_type dot = file.rfind('.');
  std::string extension = dot == std::string::npos ? "" : file.substr(dot + 1);
  for (char &c : extension) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  if (extension == "kb") return FileFormat::kb;
  if (extension == "bif") return FileFormat::bif;
  if (extension == "xml" || extension == "xmlbif") return FileFormat::xmlbif;
  if (extension == "uai") return FileFormat::uai;
  return FileFormat::net;
}

void report_located_error(uint32_t, ov_string_t message, void *) { std::fprintf(stderr, "%s\n", message); }

ov_domain_t parse_domain_file(const std::string &file) {
  switch (format_of(file)) {
  case FileFormat::bif: return ov_bif_parse_domain(file.c_str(), report_located_error, nullptr);
  case FileFormat::xmlbif: return ov_xmlbif_parse_domain(file.c_str(), report_located_error, nullptr);
  case FileFormat::uai: return ov_uai_parse_domain(file.c_str(), report_located_error, nullptr);
  case FileFormat::kb: return ov_load_domain(file.c_str());
  default: return ov_net_parse_domain(file.c_str(), report_parse_error, const_cast<char *>(file.c_str()));
  }
}

// Writes a domain to `path` in the format of the file name `target`; what
// an exchange format cannot hold is said on stderr through the domain's log.
ov_status_t save_domain_file(ov_domain_t domain, const std::string &path, const std::string &target) {
  const FileFormat format = format_of(target);
  if (format != FileFormat::net && format != FileFormat::kb) ov_domain_set_log_file(domain, stderr);
  switch (format) {
  case FileFormat::kb: return ov_domain_save_as_kb(domain, path.c_str(), nullptr);
  case FileFormat::bif: return ov_domain_save_as_bif(domain, path.c_str());
  case FileFormat::xmlbif: return ov_domain_save_as_xmlbif(domain, path.c_str());
  case FileFormat::uai: return ov_domain_save_as_uai(domain, path.c_str());
  default: return ov_domain_save_as_net(domain, path.c_str());
  }
}

// Reads a network: a domain file as it is, a class file unfolded from its
// main class (the last one, or the one named).
ov_domain_t load_network(const Options &options, DomainHolder &holder) {
  const std::string &file = options.network;
  if (format_of(file) == FileFormat::kb) {
    if (!options.class_name.empty()) {
      holder.reported = input_error(file, "--class needs a file of classes");
      return nullptr;
    }
    return ov_load_domain(file.c_str());
  }
  if (format_of(file) != FileFormat::net || !is_class_file(file)) {
    if (!options.class_name.empty()) {
      holder.reported = input_error(file, "--class needs a file of classes");
      return nullptr;
    }
    return parse_domain_file(file);
  }
  holder.classes = ov_new_class_collection();
  if (holder.classes == nullptr || ov_net_parse_classes(file.c_str(), holder.classes, nullptr, report_parse_error,
                                                        const_cast<char *>(file.c_str())) != ov_error_none)
    return nullptr;
  ov_class_t *members = ov_cc_get_members(holder.classes);
  ov_class_t main = nullptr;
  if (!options.class_name.empty()) {
    main = ov_cc_get_class_by_name(holder.classes, options.class_name.c_str());
    if (main == nullptr) holder.reported = input_error(file, "no class named " + options.class_name);
  } else {
    for (; members != nullptr && *members != nullptr; ++members) main = *members;
    if (main == nullptr) holder.reported = input_error(file, "no classes in the file");
  }
  if (main == nullptr) return nullptr;
  ov_domain_t domain = ov_class_create_domain(main);
  if (domain != nullptr) name_by_source(domain);
  return domain;
}

// Reads the options common to the commands; false with a message on error.
bool parse_options(int argc, char **argv, int first, Options &options, std::string &error, bool allow_evidence,
                   bool allow_compile_options) {
  for (int i = first; i < argc; ++i) {
    std::string arg = argv[i];
    auto value_of = [&](const char *option) -> const char * {
      if (i + 1 >= argc) {
        error = std::string(option) + " needs a value";
        return nullptr;
      }
      return argv[++i];
    };
    if (arg == "-h" || arg == "--help") {
      options.help = true;
    } else if (allow_evidence && (arg == "-e" || arg == "-l" || arg == "-v")) {
      const char *assignment = value_of(arg.c_str());
      if (assignment == nullptr) return false;
      std::string text = assignment;
      auto eq = text.find('=');
      if (eq == std::string::npos || eq == 0 || eq + 1 == text.size()) {
        error = arg + " expects NODE=VALUE, got '" + text + "'";
        return false;
      }
      Evidence e;
      e.node = text.substr(0, eq);
      e.text = text.substr(eq + 1);
      if (arg == "-e") {
        e.kind = Evidence::state;
      } else if (arg == "-l") {
        e.kind = Evidence::likelihood;
        for (const std::string &w : split(e.text, ',')) {
          double weight;
          if (!parse_double(w, weight) || !(weight >= 0.0)) {
            error = "bad likelihood weight '" + w + "' for " + e.node;
            return false;
          }
          e.weights.push_back(weight);
        }
      } else {
        e.kind = Evidence::value;
        if (!parse_double(e.text, e.number)) {
          error = "bad value '" + e.text + "' for " + e.node;
          return false;
        }
      }
      options.evidence.push_back(e);
    } else if (allow_evidence && arg == "--max") {
      options.max = true;
    } else if (allow_evidence && arg == "--fast-retraction") {
      options.fast_retraction = true;
    } else if (allow_evidence && arg == "--json") {
      options.json = true;
    } else if (allow_evidence && arg == "--limited") {
      options.limited = true;
    } else if (allow_evidence && arg == "--nodes") {
      const char *list = value_of("--nodes");
      if (list == nullptr) return false;
      options.nodes = split(list, ',');
    } else if (allow_compile_options && arg == "--method") {
      const char *method = value_of("--method");
      if (method == nullptr) return false;
      options.method = method;
    } else if (allow_compile_options && arg == "--approximate") {
      const char *value = value_of("--approximate");
      if (value == nullptr) return false;
      if (!parse_double(value, options.approximate) || !(options.approximate >= 0.0 && options.approximate < 1.0)) {
        error = std::string("--approximate needs a mass from 0 up to but not including 1, got '") + value + "'";
        return false;
      }
    } else if (allow_compile_options && arg == "--compress") {
      options.compress = true;
    } else if (allow_compile_options && arg == "--log") {
      const char *file = value_of("--log");
      if (file == nullptr) return false;
      options.log_file = file;
    } else if (arg == "--class") {
      const char *name = value_of("--class");
      if (name == nullptr) return false;
      options.class_name = name;
    } else if (!arg.empty() && arg[0] == '-' && arg != "-") {
      error = "unknown option '" + arg + "'";
      return false;
    } else {
      options.positional.push_back(arg);
    }
  }
  return true;
}

ov_node_t find_node(ov_domain_t domain, const std::string &name) {
  ov_node_t node = ov_domain_get_node_by_name(domain, name.c_str());
  if (node == nullptr) std::fprintf(stderr, "orvel: no node named '%s'\n", name.c_str());
  return node;
}

// Enters one piece of evidence; an exit status.
int enter_evidence(ov_domain_t domain, const Evidence &e) {
  ov_node_t node = find_node(domain, e.node);
  if (node == nullptr) return exit_usage;
  bool discrete = ov_node_get_kind(node) == ov_kind_discrete;
  switch (e.kind) {
  case Evidence::state: {
    if (!discrete) return usage_error(e.node + " is continuous: give its value with -v");
    ov_index_t state = -1;
    ov_count_t count = ov_node_get_number_of_states(node);
    if (e.text[0] == '#') {
      double index;
      if (parse_double(e.text.substr(1), index) && index >= 0 && index == std::floor(index) && index < count)
        state = static_cast<ov_index_t>(index);
    } else {
      state = ov_node_get_state_index_from_label(node, e.text.c_str());
    }
    if (state < 0) return usage_error("node " + e.node + " has no (single) state '" + e.text + "'");
    if (ov_node_select_state(node, state) != ov_error_none) return library_error("selecting a state of " + e.node);
    return exit_ok;
  }
  case Evidence::likelihood: {
    if (!discrete) return usage_error(e.node + " is continuous: give its value with -v");
    ov_count_t count = ov_node_get_number_of_states(node);
    if (static_cast<ov_count_t>(e.weights.size()) != count)
      return usage_error("node " + e.node + " has " + std::to_string(count) + " states, but " +
                         std::to_string(e.weights.size()) + " weights were given");
    for (ov_count_t i = 0; i < count; ++i)
      if (ov_node_enter_finding(node, i, static_cast<ov_number_t>(e.weights[static_cast<std::size_t>(i)])) !=
          ov_error_none)
        return library_error("entering a likelihood on " + e.node);
    return exit_ok;
  }
  case Evidence::value:
    if (discrete) return usage_error(e.node + " is discrete: give a state with -e");
    if (ov_node_enter_value(node, e.number) != ov_error_none) return library_error("entering a value on " + e.node);
    return exit_ok;
  }
  return exit_ok;
}

// The nodes to report: the ones named, or all chance and decision nodes in
// the domain's list order (the order of the file for a loaded network).
bool select_nodes(ov_domain_t domain, const std::vector<std::string> &names, std::vector<ov_node_t> &nodes) {
  if (!names.empty()) {
    for (const std::string &name : names) {
      ov_node_t node = find_node(domain, name);
      if (node == nullptr) return false;
      nodes.push_back(node);
    }
    return true;
  }
  for (ov_node_t node = ov_domain_get_first_node(domain); node != nullptr; node = ov_node_get_next(node)) {
    ov_category_t category = ov_node_get_category(node);
    if (category == ov_category_chance || category == ov_category_decision) nodes.push_back(node);
  }
  return true;
}

// Loads, compiles, enters evidence and propagates; an exit status.
int prepare(const Options &options, DomainHolder &holder) {
  holder.domain = load_network(options, holder);
  if (holder.domain == nullptr) return holder.reported ? holder.reported : library_error("loading " + options.network);
  if (ov_domain_get_first_node(holder.domain) == nullptr)
    return input_error(options.network, "no nodes in the network");
  if (options.limited && ov_domain_set_limited_memory(holder.domain, 1) != ov_error_none)
    return library_error("setting limited memory");
  // A KB file may hold the domain compiled already.
  if (ov_domain_is_compiled(holder.domain) != 1 && ov_domain_compile(holder.domain) != ov_error_none)
    return library_error("compiling " + options.network);
  // Table memory makes re-initialisation a copy, as after evidence that
  // turns out inconsistent; where it cannot be had, propagation does without.
  ov_domain_save_to_memory(holder.domain);
  for (const Evidence &e : options.evidence) {
    int status = enter_evidence(holder.domain, e);
    if (status != exit_ok) return status;
  }
  ov_equilibrium_t equilibrium = options.max ? ov_equilibrium_max : ov_equilibrium_sum;
  ov_evidence_mode_t mode = options.fast_retraction ? ov_mode_fast_retraction : ov_mode_normal;
  if (ov_domain_propagate(holder.domain, equilibrium, mode) != ov_error_none)
    return library_error("propagating the evidence");
  return exit_ok;
}

void print_evidence_json(std::FILE *out, const std::vector<Evidence> &evidence) {
  std::fputs("\"evidence\": {", out);
  for (std::size_t i = 0; i < evidence.size(); ++i) {
    const Evidence &e = evidence[i];
    std::fputs(i > 0 ? ", " : "", out);
    print_json_string(out, e.node.c_str());
    std::fputs(": ", out);
    if (e.kind == Evidence::state) {
      print_json_string(out, e.text.c_str());
    } else if (e.kind == Evidence::value) {
      print_json_number(out, e.number);
    } else {
      std::fputc('[', out);
      for (std::size_t k = 0; k < e.weights.size(); ++k) {
        std::fputs(k > 0 ? ", " : "", out);
        print_json_number(out, e.weights[k]);
      }
      std::fputc(']', out);
    }
  }
  std::fputc('}', out);
}

// The start of a JSON answer: the network and the evidence.
void print_json_head(std::FILE *out, const Options &options) {
  std::fputs("{\"network\": ", out);
  print_json_string(out, options.network.c_str());
  std::fputs(", ", out);
  print_evidence_json(out, options.evidence);
}

int command_beliefs(const Options &options) {
  DomainHolder holder;
  int status = prepare(options, holder);
  if (status != exit_ok) return status;
  ov_domain_t domain = holder.domain;
  std::vector<ov_node_t> nodes;
  if (!select_nodes(domain, options.nodes, nodes)) return exit_usage;

  double probability = ov_domain_get_normalization_constant(domain);
  double log_probability = ov_domain_get_log_normalization_constant(domain);
  double conflict = ov_domain_get_conflict(domain);
  bool have_conflict = ov_error_code() == ov_error_none;
  // An influence diagram: the maximum expected utility.
  bool diagram = false;
  for (ov_node_t node = ov_domain_get_first_node(domain); node != nullptr; node = ov_node_get_next(node))
    diagram = diagram || ov_node_get_category(node) == ov_category_decision ||
              ov_node_get_category(node) == ov_category_utility;
  double utility = diagram ? ov_domain_get_expected_utility(domain) : 0.0;

  std::FILE *out = stdout;
  if (options.json) {
    print_json_head(out, options);
    std::fputs(", \"probability_of_evidence\": ", out);
    print_json_number(out, probability);
    std::fputs(", \"log_probability_of_evidence\": ", out);
    print_json_number(out, log_probability);
    std::fputs(", \"conflict\": ", out);
    if (have_conflict)
      print_json_number(out, conflict);
    else
      std::fputs("null", out);
    if (diagram) {
      std::fputs(", \"maximum_expected_utility\": ", out);
      print_json_number(out, utility);
    }
    std::fputs(", \"nodes\": {", out);
  } else {
    std::printf("network: %s\n", options.network.c_str());
    std::printf("probability of evidence: %.9g\n", probability);
    std::printf("log probability of evidence: %.9g\n", log_probability);
    if (have_conflict) std::printf("conflict: %.9g\n", conflict);
    if (diagram) std::printf("maximum expected utility: %.9g\n", utility);
  }

  for (std::size_t n = 0; n < nodes.size(); ++n) {
    ov_node_t node = nodes[n];
    const char *name = ov_node_get_name(node);
    ov_category_t category = ov_node_get_category(node);
    if (options.json) {
      std::fputs(n > 0 ? ", " : "", out);
      print_json_string(out, name);
      std::fputs(": {", out);
    } else {
      std::printf("\n%s\n", name);
    }
    if (ov_node_get_kind(node) == ov_kind_continuous) {
      double mean = ov_node_get_mean(node), variance = ov_node_get_variance(node);
      if (options.json) {
        std::fputs("\"mean\": ", out);
        print_json_number(out, mean);
        std::fputs(", \"variance\": ", out);
        print_json_number(out, variance);
        std::fputc('}', out);
      } else {
        std::printf("  mean %.9g\n  variance %.9g\n", mean, variance);
      }
      continue;
    }
    if (category != ov_category_chance && category != ov_category_decision) {
      if (options.json) std::fputc('}', out);
      continue;
    }
    ov_count_t count = ov_node_get_number_of_states(node);
    bool decision = category == ov_category_decision;
    // The option of a decision with the greatest expected utility.
    ov_count_t best = 0;
    for (ov_count_t i = 1; decision && i < count; ++i)
      if (ov_node_get_expected_utility(node, i) > ov_node_get_expected_utility(node, best)) best = i;
    if (options.json) {
      std::fputs("\"states\": [", out);
      for (ov_count_t i = 0; i < count; ++i) {
        std::fputs(i > 0 ? ", " : "", out);
        print_json_string(out, ov_node_get_state_label(node, i));
      }
      std::fputs(decision ? "], \"expected_utilities\": [" : "], \"beliefs\": [", out);
      for (ov_count_t i = 0; i < count; ++i) {
        std::fputs(i > 0 ? ", " : "", out);
        print_json_number(out, decision ? ov_node_get_expected_utility(node, i) : ov_node_get_belief(node, i));
      }
      std::fputc(']', out);
      if (decision) {
        std::fputs(", \"best\": ", out);
        print_json_string(out, ov_node_get_state_label(node, best));
      }
      std::fputc('}', out);
    } else {
      for (ov_count_t i = 0; i < count; ++i) {
        const char *label = ov_node_get_state_label(node, i);
        std::string shown = label;
        if (shown.empty()) shown.append("#").append(std::to_string(i));
        if (decision)
          std::printf("  %-20s EU %.9g%s\n", shown.c_str(), ov_node_get_expected_utility(node, i),
                      i == best ? "  (best)" : "");
        else
          std::printf("  %-20s %.9g\n", shown.c_str(), ov_node_get_belief(node, i));
      }
    }
  }
  if (options.json) std::fputs("}}\n", out);
  return exit_ok;
}

int command_marginal(const Options &options) {
  if (options.positional.size() != 1) return usage_error("marginal needs NET and a list of nodes");
  DomainHolder holder;
  int status = prepare(options, holder);
  if (status != exit_ok) return status;
  std::vector<ov_node_t> wanted;
  if (!select_nodes(holder.domain, split(options.positional[0], ','), wanted)) return exit_usage;
  wanted.push_back(nullptr);
  ov_table_t table = ov_domain_get_marginal(holder.domain, wanted.data());
  if (table == nullptr) return library_error("computing the marginal");
  ov_node_t *nodes = ov_table_get_nodes(table);
  ov_number_t *data = ov_table_get_data(table);
  ov_count_t size = ov_table_get_size(table);
  std::vector<ov_node_t> order;
  for (ov_node_t *n = nodes; *n != nullptr; ++n) order.push_back(*n);
  std::vector<ov_count_t> counts;
  for (ov_node_t node : order)
    counts.push_back(ov_node_get_kind(node) == ov_kind_discrete ? ov_node_get_number_of_states(node) : 1);

  std::FILE *out = stdout;
  if (options.json) {
    print_json_head(out, options);
    std::fputs(", \"nodes\": [", out);
    for (std::size_t i = 0; i < order.size(); ++i) {
      std::fputs(i > 0 ? ", " : "", out);
      print_json_string(out, ov_node_get_name(order[i]));
    }
    std::fputs("], \"configurations\": [", out);
  }
  std::vector<ov_count_t> digit(order.size(), 0);
  for (ov_count_t cell = 0; cell < size; ++cell) {
    if (options.json) {
      std::fputs(cell > 0 ? ", {\"states\": [" : "{\"states\": [", out);
      for (std::size_t i = 0; i < order.size(); ++i) {
        std::fputs(i > 0 ? ", " : "", out);
        print_json_string(out, ov_node_get_state_label(order[i], digit[i]));
      }
      std::fputs("], \"probability\": ", out);
      print_json_number(out, data[cell]);
      std::fputc('}', out);
    } else {
      for (std::size_t i = 0; i < order.size(); ++i)
        std::printf("%s%s=%s", i > 0 ? " " : "", ov_node_get_name(order[i]),
                    ov_node_get_state_label(order[i], digit[i]));
      std::printf("  %.9g\n", data[cell]);
    }
    for (std::size_t i = order.size(); i-- > 0;) {
      if (++digit[i] < counts[i]) break;
      digit[i] = 0;
    }
  }
  if (options.json) std::fputs("]}\n", out);
  ov_table_delete(table);
  return exit_ok;
}

int command_policy(const Options &options) {
  if (options.positional.size() != 1) return usage_error("policy needs NET and a decision");
  DomainHolder holder;
  int status = prepare(options, holder);
  if (status != exit_ok) return status;
  ov_node_t decision = ov_domain_get_node_by_name(holder.domain, options.positional[0].c_str());
  if (decision == nullptr || ov_node_get_category(decision) != ov_category_decision)
    return usage_error("'" + options.positional[0] + "' is not a decision of " + options.network);
  ov_table_t policy = ov_node_get_policy(decision);
  if (policy == nullptr) return library_error("solving for the policy");
  ov_table_t values = ov_node_get_policy_utilities(decision);
  if (values == nullptr) {
    ov_table_delete(policy);
    return library_error("solving for the policy");
  }
  std::vector<ov_node_t> past;
  for (ov_node_t *n = ov_table_get_nodes(policy); *n != decision; ++n) past.push_back(*n);
  const ov_count_t options_count = ov_node_get_number_of_states(decision);
  const ov_count_t rows = ov_table_get_size(policy) / options_count;
  const ov_number_t *chosen = ov_table_get_data(policy);
  const ov_number_t *utility = ov_table_get_data(values);
  std::FILE *out = stdout;
  if (options.json) {
    print_json_head(out, options);
    std::fputs(", \"decision\": ", out);
    print_json_string(out, ov_node_get_name(decision));
    std::fputs(", \"past\": [", out);
    for (std::size_t i = 0; i < past.size(); ++i) {
      std::fputs(i > 0 ? ", " : "", out);
      print_json_string(out, ov_node_get_name(past[i]));
    }
    std::fputs("], \"rows\": [", out);
  }
  std::vector<ov_count_t> digit(past.size(), 0);
  for (ov_count_t row = 0; row < rows; ++row) {
    ov_count_t best = 0;
    while (best + 1 < options_count && chosen[row * options_count + best] != 1.0f) ++best;
    if (options.json) {
      std::fputs(row > 0 ? ", {\"states\": [" : "{\"states\": [", out);
      for (std::size_t i = 0; i < past.size(); ++i) {
        std::fputs(i > 0 ? ", " : "", out);
        print_json_string(out, ov_node_get_state_label(past[i], digit[i]));
      }
      std::fputs("], \"choice\": ", out);
      print_json_string(out, ov_node_get_state_label(decision, best));
      std::fputs(", \"expected_utilities\": [", out);
      for (ov_count_t k = 0; k < options_count; ++k) {
        std::fputs(k > 0 ? ", " : "", out);
        print_json_number(out, utility[row * options_count + k]);
      }
      std::fputs("]}", out);
    } else {
      std::string line;
      for (std::size_t i = 0; i < past.size(); ++i) {
        line += i > 0 ? " " : "";
        line += ov_node_get_name(past[i]);
        line += "=";
        line += ov_node_get_state_label(past[i], digit[i]);
      }
      if (past.empty()) line = "(always)";
      std::printf("%s  ->  %s", line.c_str(), ov_node_get_state_label(decision, best));
      for (ov_count_t k = 0; k < options_count; ++k)
        std::printf("  %s: %.9g", ov_node_get_state_label(decision, k), utility[row * options_count + k]);
      std::printf("\n");
    }
    for (std::size_t i = past.size(); i-- > 0;) {
      if (++digit[i] < ov_node_get_number_of_states(past[i])) break;
      digit[i] = 0;
    }
  }
  if (options.json) std::fputs("]}\n", out);
  ov_table_delete(policy);
  ov_table_delete(values);
  return exit_ok;
}

// The cells of the domain's clique tables that are not zero.
double nonzero_clique_cells(ov_domain_t domain) {
  double count = 0;
  for (ov_clique_t c = ov_domain_get_first_clique(domain); c != nullptr; c = ov_clique_get_next(c)) {
    ov_table_t table = ov_clique_get_probability_table(c);
    const ov_number_t *data = ov_table_get_data(table);
    const ov_count_t size = ov_table_get_size(table);
    for (ov_count_t i = 0; data != nullptr && i < size; ++i) count += data[i] != 0.0f ? 1 : 0;
  }
  return count;
}

int command_compile(const Options &options) {
  static const std::map<std::string, ov_triangulation_method_t> methods = {
      {"clique-size", ov_tm_clique_size},   {"clique-weight", ov_tm_clique_weight},
      {"fill-in-size", ov_tm_fill_in_size}, {"fill-in-weight", ov_tm_fill_in_weight},
      {"total-weight", ov_tm_total_weight},
  };
  auto method = methods.find(options.method);
  if (method == methods.end() && options.method != "best")
    return usage_error("unknown method '" + options.method + "'");
  if (!options.positional.empty()) return usage_error("compile takes one network");
  if (!options.log_file.empty() && same_file(options.log_file, options.network))
    return usage_error("the log file " + options.log_file + " is the network " + options.network);
  DomainHolder holder;
  holder.domain = load_network(options, holder);
  if (holder.domain == nullptr) return holder.reported ? holder.reported : library_error("loading " + options.network);
  ov_domain_t domain = holder.domain;
  if (ov_domain_get_first_node(domain) == nullptr) return input_error(options.network, "no nodes in the network");

  std::FILE *log = nullptr;
  if (!options.log_file.empty()) {
    log = std::fopen(options.log_file.c_str(), "w");
    if (log == nullptr) {
      std::fprintf(stderr, "orvel: cannot open %s for writing\n", options.log_file.c_str());
      return exit_usage;
    }
    ov_domain_set_log_file(domain, log);
  }
  // A KB file may hold a compiled domain: this command compiles afresh.
  ov_domain_uncompile(domain);
  auto start = std::chrono::steady_clock::now();
  int status = exit_ok;
  std::string chosen = options.method;
  ov_triangulation_method_t tm = method != methods.end() ? method->second : ov_tm_fill_in_weight;
  if (method == methods.end()) {
    // Every method, keeping the one of the smallest total clique table size.
    double least = -1;
    for (const auto &[name, each] : methods) {
      if (ov_domain_triangulate(domain, each) != ov_error_none) break;
      double total = 0;
      for (ov_clique_t c = ov_domain_get_first_clique(domain); c != nullptr; c = ov_clique_get_next(c)) {
        double size = 1;
        for (ov_node_t *m = ov_clique_get_members(c); m != nullptr && *m != nullptr; ++m)
          if (ov_node_get_kind(*m) == ov_kind_discrete) size *= static_cast<double>(ov_node_get_number_of_states(*m));
        total += size;
      }
      if (least < 0 || total < least) least = total, tm = each, chosen = "best (" + name + ")";
      ov_domain_uncompile(domain);
    }
  }
  if (ov_domain_triangulate(domain, tm) != ov_error_none)
    status = library_error("triangulating");
  else if (ov_domain_compile(domain) != ov_error_none)
    status = library_error("compiling");
  double removed = 0;
  double nonzero_before = status == exit_ok ? nonzero_clique_cells(domain) : 0;
  if (status == exit_ok && options.approximate >= 0 &&
      (removed = ov_domain_approximate(domain, options.approximate)) < 0)
    status = library_error("approximating");
  const double cells_before = status == exit_ok ? static_cast<double>(ov_domain_get_jt_cost(domain)) : 0;
  if (status == exit_ok && options.compress && ov_domain_compress(domain) < 0) status = library_error("compressing");
  double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  if (log != nullptr) {
    ov_domain_set_log_file(domain, nullptr);
    std::fclose(log);
  }
  if (status != exit_ok) return status;

  ov_count_t node_count = 0;
  for (ov_node_t node = ov_domain_get_first_node(domain); node != nullptr; node = ov_node_get_next(node)) ++node_count;
  ov_count_t trees = 0, cliques = 0, largest_members = 0;
  double largest_size = 0, total_size = 0;
  for (ov_junction_tree_t tree = ov_domain_get_first_junction_tree(domain); tree != nullptr;
       tree = ov_jt_get_next(tree)) {
    ++trees;
    for (ov_clique_t *c = ov_jt_get_cliques(tree); c != nullptr && *c != nullptr; ++c) {
      ++cliques;
      double size = 1;
      ov_count_t members = 0;
      for (ov_node_t *m = ov_clique_get_members(*c); m != nullptr && *m != nullptr; ++m) {
        ++members;
        if (ov_node_get_kind(*m) == ov_kind_discrete) size *= static_cast<double>(ov_node_get_number_of_states(*m));
      }
      total_size += size;
      if (size > largest_size) {
        largest_size = size;
        largest_members = members;
      }
    }
  }
  std::printf("network: %s\n", options.network.c_str());
  std::printf("method: %s\n", chosen.c_str());
  std::printf("nodes: %lld\n", static_cast<long long>(node_count));
  std::printf("cliques: %lld\n", static_cast<long long>(cliques));
  std::printf("junction trees: %lld\n", static_cast<long long>(trees));
  std::printf("largest clique: %.0f cells (%lld nodes)\n", largest_size, static_cast<long long>(largest_members));
  std::printf("total clique table size: %.0f\n", total_size);
  if (options.approximate >= 0) {
    std::printf("approximation: epsilon %g, mass removed %.6g\n", options.approximate, removed);
    std::printf("non-zero clique cells: %.0f before, %.0f after\n", nonzero_before, nonzero_clique_cells(domain));
  }
  if (options.compress)
    std::printf("compression: clique cells %.0f before, %.0f after\n", cells_before,
                static_cast<double>(ov_domain_get_jt_cost(domain)));
  std::printf("time: %.3f s\n", seconds);
  return exit_ok;
}

// Writes the domain to `target` through a temporary file in the same
// directory, renamed over the target only once the whole network is written,
// so that a failure (a full disk) leaves an existing target as it was. A
// target that exists and is not a plain file (a device, a pipe) is written
// directly. An exit status.
int save_replacing(ov_domain_t domain, const std::string &target) {
  std::string path = target;
  struct stat st;
  if (lstat(path.c_str(), &st) == 0 && S_ISLNK(st.st_mode)) {
    // Replace the file the link points at, not the link.
    if (char *real = realpath(path.c_str(), nullptr)) {
      path = real;
      std::free(real);
    }
  }
  const bool exists = stat(path.c_str(), &st) == 0;
  if (exists && !S_ISREG(st.st_mode)) {
    if (save_domain_file(domain, path, target) != ov_error_none) return library_error("writing " + target);
    return exit_ok;
  }
  const std::string::size_type slash = path.rfind('/');
  const std::string directory = slash == std::string::npos ? "" : path.substr(0, slash + 1);
  const std::string base = slash == std::string::npos ? path : path.substr(slash + 1);
  std::string temporary = directory + "." + base + ".XXXXXX";
  const int fd = mkstemp(temporary.data());
  if (fd < 0) return input_error(target, std::string("cannot create a temporary file: ") + std::strerror(errno));
  // The new file gets the old one's permissions, or those of a new file.
  mode_t mode = st.st_mode & 07777;
  if (!exists) {
    const mode_t mask = umask(0);
    umask(mask);
    mode = 0666 & ~mask;
  }
  const bool prepared = fchmod(fd, mode) == 0;
  const int saved_errno = errno;
  close(fd);
  if (!prepared) {
    unlink(temporary.c_str());
    return input_error(target, std::string("cannot set the permissions of a new file: ") + std::strerror(saved_errno));
  }
  if (save_domain_file(domain, temporary, target) != ov_error_none) {
    const int status = library_error("writing " + target);
    unlink(temporary.c_str());
    return status;
  }
  if (std::rename(temporary.c_str(), path.c_str()) != 0) {
    const int status = input_error(target, std::string("cannot replace it: ") + std::strerror(errno));
    unlink(temporary.c_str());
    return status;
  }
  return exit_ok;
}

int command_convert(const Options &options) {
  if (options.positional.size() != 1) return usage_error("convert needs IN and OUT");
  const std::string &target = options.positional[0];
  if (same_file(target, options.network))
    return usage_error("the output " + target + " is the input " + options.network);
  DomainHolder holder;
  holder.domain = load_network(options, holder);
  if (holder.domain == nullptr) return holder.reported ? holder.reported : library_error("loading " + options.network);
  return save_replacing(holder.domain, target);
}

const char *const simulate_help = "usage: orvel simulate NET -n N -o DATA [--missing FRACTION] [--seed S]\n"
                                  "\n"
                                  "Draws N cases from the tables of the network (one with decision nodes is\n"
                                  "refused) and writes them to the data file DATA: a header of node names, then\n"
                                  "one case a line, fields separated by ','. --missing blanks each entry with\n"
                                  "probability FRACTION (written '*'); --seed S (default 310952) seeds both the\n"
                                  "simulation and the blanking, so that the same arguments give the same file.\n";

int command_simulate(int argc, char **argv) {
  std::string network, output;
  long long count = -1;
  double missing = 0.0;
  unsigned long seed = 310952;
  for (int i = 2; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg == "-h" || arg == "--help") {
      std::fputs(simulate_help, stdout);
      return exit_ok;
    }
    const bool takes_value = arg == "-n" || arg == "-o" || arg == "--missing" || arg == "--seed";
    if (takes_value && i + 1 >= argc) return usage_error(arg + " needs a value");
    if (!takes_value && !arg.empty() && arg[0] == '-') return usage_error("unknown option '" + arg + "'");
    if (!takes_value) {
      if (!network.empty()) return usage_error("simulate takes one network");
      network = arg;
      continue;
    }
    const std::string value = argv[++i];
    char *end = nullptr;
    errno = 0;
    if (arg == "-o") {
      output = value;
    } else if (arg == "-n") {
      count = std::strtoll(value.c_str(), &end, 10);
      if (value.empty() || *end != 0 || errno != 0 || count < 0 || count > 0x7FFFFFFF)
        return usage_error("-n needs a number of cases, got '" + value + "'");
    } else if (arg == "--missing") {
      if (!parse_double(value, missing) || !(missing >= 0.0 && missing <= 1.0))
        return usage_error("--missing needs a fraction from 0 to 1, got '" + value + "'");
    } else {
      seed = std::strtoul(value.c_str(), &end, 10);
      if (value.empty() || value[0] == '-' || *end != 0 || errno != 0 || seed > 0xFFFFFFFFul)
        return usage_error("--seed needs a whole number, got '" + value + "'");
    }
  }
  if (network.empty()) return usage_error("simulate needs a network file");
  if (count < 0) return usage_error("simulate needs -n N");
  if (output.empty()) return usage_error("simulate needs -o DATA");
  if (same_file(output, network)) return usage_error("the output " + output + " is the input " + network);
  if (int status = check_input(network); status != exit_ok) return status;

  Options options;
  options.network = network;
  DomainHolder holder;
  holder.domain = load_network(options, holder);
  ov_domain_t domain = holder.domain;
  if (domain == nullptr) return holder.reported ? holder.reported : library_error("loading " + network);
  std::vector<ov_node_t> nodes;
  for (ov_node_t node = ov_domain_get_first_node(domain); node != nullptr; node = ov_node_get_next(node)) {
    const ov_category_t category = ov_node_get_category(node);
    if (category == ov_category_decision) return input_error(network, "decision nodes cannot be simulated");
    if (category == ov_category_chance) nodes.push_back(node);
  }
  if (nodes.empty()) return input_error(network, "no chance nodes to simulate");
  nodes.push_back(nullptr);
  if (ov_domain_seed_random(domain, static_cast<uint32_t>(seed)) != ov_error_none ||
      ov_domain_set_number_of_cases(domain, static_cast<ov_count_t>(count)) != ov_error_none)
    return library_error("storing " + std::to_string(count) + " cases");
  // The blanking draws from a generator of its own, so that the cases drawn
  // are the same whatever fraction is blanked.
  std::mt19937_64 blanks(seed);
  std::uniform_real_distribution<double> uniform(0.0, 1.0);
  for (ov_index_t index = 0; index < count; ++index) {
    if (ov_domain_simulate(domain) != ov_error_none) return library_error("simulating " + network);
    for (std::size_t k = 0; nodes[k] != nullptr; ++k) {
      ov_node_t node = nodes[k];
      if (missing > 0.0 && uniform(blanks) < missing) continue;
      const ov_status_t status = ov_node_get_kind(node) == ov_kind_discrete
                                     ? ov_node_set_case_state(node, index, ov_node_get_sampled_state(node))
                                     : ov_node_set_case_value(node, index, ov_node_get_sampled_value(node));
      if (status != ov_error_none) return library_error("storing a case");
    }
  }
  if (ov_domain_save_cases(domain, output.c_str(), nodes.data(), nullptr, 0, ",", "*") != ov_error_none)
    return library_error("writing " + output);
  return exit_ok;
}

// Fits the tables of a compiled domain holding cases by EM (every chance
// node learned), writes it to `output` and prints the log-likelihood, AIC
// and BIC; the iterations are reported on standard error.
int fit_tables(ov_domain_t domain, const std::string &data, long long iterations, double tolerance,
               const std::string &output) {
  for (ov_node_t node = ov_domain_get_first_node(domain); node != nullptr; node = ov_node_get_next(node))
    if (ov_node_get_category(node) == ov_category_chance && ov_node_get_experience_table(node) == nullptr)
      return library_error("making experience tables");
  // The library's EM report, one line per iteration, is the progress.
  if (ov_domain_set_max_number_of_em_iterations(domain, static_cast<uint32_t>(iterations)) != ov_error_none ||
      ov_domain_set_log_likelihood_tolerance(domain, tolerance) != ov_error_none ||
      ov_domain_set_log_file(domain, stderr) != ov_error_none)
    return library_error("setting up EM");
  if (ov_domain_learn_tables(domain) != ov_error_none) return library_error("learning from " + data);
  ov_domain_set_log_file(domain, nullptr);
  const double ll = ov_domain_get_log_likelihood(domain);
  const double aic = ov_domain_get_AIC(domain), bic = ov_domain_get_BIC(domain);
  if (ll > 0.0 || aic > 0.0 || bic > 0.0) return library_error("computing the log-likelihood");
  if (int status = save_replacing(domain, output); status != exit_ok) return status;
  std::printf("log-likelihood %.9g\nAIC %.9g\nBIC %.9g\n", ll, aic, bic);
  return std::fflush(stdout) == 0 ? exit_ok : input_error("standard output", "cannot be written");
}

const char *const learn_help = "usage: orvel learn NET DATA -o OUT [--max-iterations N] [--tolerance T]\n"
                               "\n"
                               "Reads the cases of the data file DATA (missing values allowed) and fits the\n"
                               "tables of the network's chance nodes to them by EM, starting from the tables\n"
                               "in NET, with the experience NET gives them (none: no prior). Each iteration's\n"
                               "log-likelihood goes to standard error; at the end the log-likelihood, AIC and\n"
                               "BIC of the cases under the learned tables are printed, and the network with\n"
                               "the learned tables and experience counts is written to OUT. EM stops when the\n"
                               "log-likelihood changes by at most T (default 0.0001) relative to its size, or\n"
                               "after N iterations (default 0: no limit).\n";

// Reads the value of --max-iterations or --tolerance (the EM options of
// learn and learn-structure); what is wrong with it, or "".
std::string parse_em_option(const std::string &arg, const std::string &value, long long &iterations,
                            double &tolerance) {
  if (arg == "--max-iterations") {
    char *end = nullptr;
    errno = 0;
    iterations = std::strtoll(value.c_str(), &end, 10);
    if (value.empty() || *end != 0 || errno != 0 || iterations < 0 || iterations > 0xFFFFFFFFll)
      return "--max-iterations needs a number, got '" + value + "'";
  } else if (!parse_double(value, tolerance) || !(tolerance >= 0.0)) {
    return "--tolerance needs a number not below 0, got '" + value + "'";
  }
  return "";
}

int command_learn(int argc, char **argv) {
  std::vector<std::string> files;
  std::string output;
  long long iterations = 0;
  double tolerance = 0.0001;
  for (int i = 2; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg == "-h" || arg == "--help") {
      std::fputs(learn_help, stdout);
      return exit_ok;
    }
    const bool takes_value = arg == "-o" || arg == "--max-iterations" || arg == "--tolerance";
    if (takes_value && i + 1 >= argc) return usage_error(arg + " needs a value");
    if (!takes_value && !arg.empty() && arg[0] == '-') return usage_error("unknown option '" + arg + "'");
    if (!takes_value) {
      files.push_back(arg);
      continue;
    }
    const std::string value = argv[++i];
    if (arg == "-o") {
      output = value;
    } else if (std::string problem = parse_em_option(arg, value, iterations, tolerance); !problem.empty()) {
      return usage_error(problem);
    }
  }
  if (files.size() != 2) return usage_error("learn needs a network file and a data file");
  if (output.empty()) return usage_error("learn needs -o OUT");
  const std::string &network = files[0], &data = files[1];
  for (const std::string &input : files)
    if (same_file(output, input)) return usage_error("the output " + output + " is the input " + input);
  for (const std::string &input : files)
    if (int status = check_input(input); status != exit_ok) return status;

  Options options;
  options.network = network;
  DomainHolder holder;
  holder.domain = load_network(options, holder);
  ov_domain_t domain = holder.domain;
  if (domain == nullptr) return holder.reported ? holder.reported : library_error("loading " + network);
  if (ov_domain_compile(domain) != ov_error_none) return library_error("compiling " + network);
  if (ov_domain_parse_cases(domain, data.c_str(), report_parse_error, const_cast<char *>(data.c_str())) !=
      ov_error_none)
    return library_error("reading " + data);
  if (ov_domain_get_number_of_cases(domain) == 0) return input_error(data, "no cases");
  return fit_tables(domain, data, iterations, tolerance, output);
}

const char *const learn_structure_help =
    "usage: orvel learn-structure DATA -o OUT [--constraints FILE] [--significance LEVEL]\n"
    "                             [--max-iterations N] [--tolerance T]\n"
    "\n"
    "Makes one discrete chance node per column of the data file DATA, named by its\n"
    "header: a column of numbers gets a numbered node whose states are the distinct\n"
    "values in increasing order, a column of labels gets one state per label in\n"
    "order of first appearance (missing values add none). Then learns the edges from\n"
    "the cases by tests of conditional independence at LEVEL (default 0.05), fits\n"
    "the tables by EM from uniform tables (as 'orvel learn'), writes the network to\n"
    "OUT and prints the log-likelihood, AIC and BIC. Progress goes to standard error.\n"
    "\n"
    "The constraints file has one edge a line ('#' starts a comment):\n"
    "  A -> B    an edge from A to B is required\n"
    "  A -- B    an edge between A and B is required, either way\n"
    "  A !-> B   no edge from A to B (one from B to A is allowed)\n"
    "  A !-- B   no edge between A and B\n";

// Reads the constraints file into edge constraints of the domain.
int read_constraints(ov_domain_t domain, const std::string &file) {
  std::FILE *in = std::fopen(file.c_str(), "rb");
  if (in == nullptr) return input_error(file, std::strerror(errno));
  std::string text;
  for (int c; (c = std::fgetc(in)) != EOF;) text += static_cast<char>(c);
  std::fclose(in);
  int line_number = 0;
  for (const std::string &raw : split(text, '\n')) {
    ++line_number;
    std::string line = raw.substr(0, raw.find('#'));
    std::vector<std::string> words;
    for (std::size_t i = 0; i < line.size();) {
      while (i < line.size() && std::isspace(static_cast<unsigned char>(line[i]))) ++i;
      std::size_t j = i;
      while (j < line.size() && !std::isspace(static_cast<unsigned char>(line[j]))) ++j;
      if (j > i) words.push_back(line.substr(i, j - i));
      i = j;
    }
    if (words.empty()) continue;
    const std::string where = file + ":" + std::to_string(line_number);
    static const std::map<std::string, ov_edge_constraint_t> kinds = {{"->", ov_constraint_forward_edge_required},
                                                                      {"--", ov_constraint_edge_required},
                                                                      {"!->", ov_constraint_forward_edge_forbidden},
                                                                      {"!--", ov_constraint_edge_forbidden}};
    if (words.size() != 3 || kinds.count(words[1]) == 0)
      return input_error(where, "expected 'A -> B', 'A -- B', 'A !-> B' or 'A !-- B'");
    ov_node_t a = find_node(domain, words[0]), b = find_node(domain, words[2]);
    if (a == nullptr || b == nullptr) return input_error(where, "no column named " + (a ? words[2] : words[0]));
    if (a == b) return input_error(where, "an edge needs two columns");
    if (ov_node_set_edge_constraint(a, b, kinds.at(words[1])) != ov_error_none)
      return library_error("setting the constraint of " + where);
  }
  return exit_ok;
}

int command_learn_structure(int argc, char **argv) {
  std::vector<std::string> files;
  std::string output, constraints;
  long long iterations = 0;
  double tolerance = 0.0001, significance = 0.05;
  for (int i = 2; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg == "-h" || arg == "--help") {
      std::fputs(learn_structure_help, stdout);
      return exit_ok;
    }
    const bool takes_value = arg == "-o" || arg == "--constraints" || arg == "--significance" ||
                             arg == "--max-iterations" || arg == "--tolerance";
    if (takes_value && i + 1 >= argc) return usage_error(arg + " needs a value");
    if (!takes_value && !arg.empty() && arg[0] == '-') return usage_error("unknown option '" + arg + "'");
    if (!takes_value) {
      files.push_back(arg);
      continue;
    }
    const std::string value = argv[++i];
    if (arg == "-o") {
      output = value;
    } else if (arg == "--constraints") {
      constraints = value;
    } else if (arg == "--significance") {
      if (!parse_double(value, significance) || !(significance > 0.0 && significance < 1.0))
        return usage_error("--significance needs a number between 0 and 1, got '" + value + "'");
    } else if (std::string problem = parse_em_option(arg, value, iterations, tolerance); !problem.empty()) {
      return usage_error(problem);
    }
  }
  if (files.size() != 1) return usage_error("learn-structure needs one data file");
  if (output.empty()) return usage_error("learn-structure needs -o OUT");
  const std::string &data = files[0];
  for (const std::string &input : {data, constraints})
    if (!input.empty() && same_file(output, input))
      return usage_error("the output " + output + " is the input " + input);
  if (int status = check_input(data); status != exit_ok) return status;

  std::string error;
  DomainHolder holder;
  holder.domain = orvel_tool::domain_from_data_columns(data, error);
  ov_domain_t domain = holder.domain;
  if (domain == nullptr) return input_error(data, error);
  if (ov_domain_parse_cases(domain, data.c_str(), report_parse_error, const_cast<char *>(data.c_str())) !=
      ov_error_none)
    return library_error("reading " + data);
  const ov_count_t cases = ov_domain_get_number_of_cases(domain);
  if (cases == 0) return input_error(data, "no cases");
  if (!constraints.empty())
    if (int status = read_constraints(domain, constraints); status != exit_ok) return status;
  if (ov_domain_set_significance_level(domain, significance) != ov_error_none)
    return library_error("setting the significance level");
  std::fprintf(stderr, "%lld cases; learning the structure\n", static_cast<long long>(cases));
  const auto start = std::chrono::steady_clock::now();
  if (ov_domain_learn_structure(domain) != ov_error_none) return library_error("learning the structure");
  int edges = 0;
  for (ov_node_t node = ov_domain_get_first_node(domain); node != nullptr; node = ov_node_get_next(node)) {
    for (ov_node_t *p = ov_node_get_parents(node); *p != nullptr; ++p) ++edges;
    // EM starts from uniform tables.
    ov_table_t table = ov_node_get_table(node);
    ov_number_t *cells = table == nullptr ? nullptr : ov_table_get_data(table);
    if (cells == nullptr) return library_error("making the tables");
    std::fill(cells, cells + ov_table_get_size(table), 1.0f);
  }
  std::fprintf(stderr, "%d edges learned in %.3f s; learning the tables\n", edges,
               std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
  if (ov_domain_compile(domain) != ov_error_none) return library_error("compiling the learned network");
  return fit_tables(domain, data, iterations, tolerance, output);
}
const char *const draw_help = "usage: orvel draw NET [-e NODE=STATE]... [-l NODE=w1,...]... [--max] [--junction-tree]\n"
                              "                      -o FILE.svg|.png|.pdf|.dot\n"
                              "\n"
                              "Compiles the network, enters the evidence, propagates and draws the network with\n"
                              "each discrete chance node's beliefs as bars; nodes with evidence are drawn bold\n"
                              "with red bars. --junction-tree draws the junction forest instead: the cliques\n"
                              "with their members and table sizes, joined by their separators. A network that\n"
                              "cannot be compiled yet (continuous nodes) is drawn without beliefs.\n"
                              "A .dot file is written directly; the other formats are laid out by Graphviz's\n"
                              "dot program, which must be on the PATH (Debian package graphviz).\n";

// orvel draw: the picture is the library's DOT text (ov_domain_save_as_dot);
// only the layout into SVG, PNG or PDF is Graphviz's, run as a program so
// that neither the library nor this tool links with it.
int command_draw(int argc, char **argv) {
  std::vector<char *> rest(argv, argv + 2);
  std::string output;
  bool junction = false;
  for (int i = 2; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg == "-o") {
      if (i + 1 >= argc) return usage_error("-o needs a value");
      output = argv[++i];
    } else if (arg == "--junction-tree") {
      junction = true;
    } else {
      rest.push_back(argv[i]);
      // An option's value passes through as it is, whatever it looks like.
      if ((arg == "-e" || arg == "-l" || arg == "-v" || arg == "--class") && i + 1 < argc) rest.push_back(argv[++i]);
    }
  }
  Options options;
  std::string error;
  if (!parse_options(static_cast<int>(rest.size()), rest.data(), 2, options, error, true, false))
    return usage_error(error);
  if (options.help) {
    std::fputs(draw_help, stdout);
    return exit_ok;
  }
  if (options.json || !options.nodes.empty()) return usage_error("draw takes neither --json nor --nodes");
  if (options.positional.size() != 1) return usage_error("draw needs one network file");
  options.network = options.positional.front();
  if (output.empty()) return usage_error("draw needs -o FILE");
  const std::string::size_type dot = output.rfind('.');
  const std::string format =
      dot == std::string::npos || output.find('/', dot) != std::string::npos ? std::string() : output.substr(dot + 1);
  if (format != "dot" && format != "svg" && format != "png" && format != "pdf")
    return usage_error("draw writes .svg, .png, .pdf or .dot files, not '" + output + "'");
  if (same_file(output, options.network))
    return usage_error("the output " + output + " is the input " + options.network);
  if (int status = check_input(options.network); status != exit_ok) return status;

  DomainHolder holder;
  holder.domain = load_network(options, holder);
  if (holder.domain == nullptr) return holder.reported ? holder.reported : library_error("loading " + options.network);
  if (ov_domain_get_first_node(holder.domain) == nullptr)
    return input_error(options.network, "no nodes in the network");
  ov_dot_form_t form = junction ? ov_dot_junction_tree : ov_dot_beliefs;
  if (ov_domain_is_compiled(holder.domain) != 1 && ov_domain_compile(holder.domain) != ov_error_none) {
    if (junction || !options.evidence.empty()) return library_error("compiling");
    std::fprintf(stderr, "orvel: %s cannot be compiled yet: drawn without beliefs\n", options.network.c_str());
    form = ov_dot_network;
  } else {
    for (const Evidence &e : options.evidence)
      if (int status = enter_evidence(holder.domain, e); status != exit_ok) return status;
    if (ov_domain_propagate(holder.domain, options.max ? ov_equilibrium_max : ov_equilibrium_sum,
                            options.fast_retraction ? ov_mode_fast_retraction : ov_mode_normal) != ov_error_none)
      return library_error("propagating the evidence");
  }
  if (format == "dot") {
    if (ov_domain_save_as_dot(holder.domain, output.c_str(), form) != ov_error_none)
      return library_error("writing " + output);
    return exit_ok;
  }
  const char *tmpdir = std::getenv("TMPDIR");
  std::string temporary = std::string(tmpdir != nullptr && *tmpdir != 0 ? tmpdir : "/tmp") + "/orvel-draw.XXXXXX";
  const int fd = mkstemp(temporary.data());
  if (fd < 0) return input_error(temporary, std::string("cannot create a temporary file: ") + std::strerror(errno));
  close(fd);
  if (ov_domain_save_as_dot(holder.domain, temporary.c_str(), form) != ov_error_none) {
    const int status = library_error("writing the DOT text");
    unlink(temporary.c_str());
    return status;
  }
  std::string type = "-T" + format;
  char program[] = "dot", to[] = "-o";
  char *arguments[] = {program, type.data(), to, output.data(), temporary.data(), nullptr};
  pid_t pid = 0;
  const int spawned = posix_spawnp(&pid, program, nullptr, nullptr, arguments, environ);
  int wait_status = 0;
  const bool ran = spawned == 0 && waitpid(pid, &wait_status, 0) == pid;
  unlink(temporary.c_str());
  if (spawned == ENOENT)
    return input_error(output, "Graphviz's dot program is not on the PATH (Debian: apt-get install graphviz); "
                               "write a .dot file instead");
  if (spawned != 0) return input_error(output, std::string("cannot run Graphviz's dot: ") + std::strerror(spawned));
  if (!ran || !WIFEXITED(wait_status) || WEXITSTATUS(wait_status) != 0)
    return input_error(output, "Graphviz's dot failed to lay out the picture");
  return exit_ok;
}

} // namespace

namespace {

int run(int argc, char **argv) {
  if (argc < 2) {
    std::fputs(main_help, stderr);
    return exit_usage;
  }
  std::string command = argv[1];
  if (command == "-h" || command == "--help" || command == "help") {
    std::fputs(main_help, stdout);
    return exit_ok;
  }
  if (command == "simulate") return command_simulate(argc, argv);
  if (command == "learn") return command_learn(argc, argv);
  if (command == "learn-structure") return command_learn_structure(argc, argv);
  if (command == "draw") return command_draw(argc, argv);
  struct Command {
    const char *help;
    int (*run)(const Options &);
    bool evidence, compile_options;
  };
  static const std::map<std::string, Command> commands = {
      {"beliefs", {beliefs_help, command_beliefs, true, false}},
      {"marginal", {marginal_help, command_marginal, true, false}},
      {"policy", {policy_help, command_policy, true, false}},
      {"compile", {compile_help, command_compile, false, true}},
      {"convert", {convert_help, command_convert, false, false}},
  };
  auto found = commands.find(command);
  if (found == commands.end()) return usage_error("unknown command '" + command + "'");
  Options options;
  std::string error;
  if (!parse_options(argc, argv, 2, options, error, found->second.evidence, found->second.compile_options))
    return usage_error(error);
  if (options.help) {
    std::fputs(found->second.help, stdout);
    return exit_ok;
  }
  if (options.positional.empty()) return usage_error(command + " needs a network file");
  options.network = options.positional.front();
  options.positional.erase(options.positional.begin());
  if (command == "beliefs" && !options.positional.empty()) return usage_error("beliefs takes one network");
  if (int status = check_input(options.network); status != exit_ok) return status;
  return found->second.run(options);
}

} // namespace

int main(int argc, char **argv) {
  int status = run(argc, argv);
  // Output that never reached its file (a full disk, a closed pipe) is a
  // failure like any other.
  const bool flushed = std::fflush(stdout) == 0 && !std::ferror(stdout);
  const int flush_errno = errno;
  if (std::fclose(stdout) != 0 || !flushed) {
    std::fprintf(stderr, "orvel: error writing standard output: %s\n", std::strerror(flushed ? errno : flush_errno));
    if (status == exit_ok) status = exit_library;
  }
  return status;
}
