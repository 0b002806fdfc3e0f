// The NET parser: the shared networks against an independent reader, golden
// files with their exact messages, lines and codes, the items that the
// writer's golden files do not hold, classes, node-list files and hostile
// input. (The writer's golden files, read back, cover models, learning
// tables, decisions, utilities, subtypes and state values.)
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "expr/model.h"
#include "io/golden_rows.h"
#include "model/chain_component.h"
#include "model/domain.h"
#include "oo/class.h"
#include "orvel.h"
#include "table/table.h"

namespace {

using orvel::test::read_file;

namespace fs = std::filesystem;

struct Messages {
  std::vector<std::string> lines; // "location: message"
};

void collect(std::uint32_t location, ov_string_t message, void *data) {
  static_cast<Messages *>(data)->lines.push_back(std::to_string(location) + ": " + message);
}

std::string temp_file(const std::string &name, const std::string &text) {
  std::string path = (fs::temp_directory_path() / ("orvel_net_" + name)).string();
  std::ofstream(path, std::ios::binary) << text;
  return path;
}

ov_node_t node(ov_domain_t d, const char *name) { return ov_domain_get_node_by_name(d, name); }

std::vector<float> table_values(ov_node_t n) {
  ov_table_t t = ov_node_get_table(n);
  ov_number_t *data = ov_table_get_data(t);
  return std::vector<float>(data, data + ov_table_get_size(t));
}

// An independent reading of a block-format file: node names and state
// counts, and per potential the child, its parents and every number of its
// data item in file order.
struct Reference {
  std::map<std::string, std::size_t> states;
  std::vector<std::string> order;
  struct Potential {
    std::string child;
    std::vector<std::string> parents;
    std::vector<double> data;
  };
  std::vector<Potential> potentials;
};

// A plain tokeniser: strings, words (names and numbers) and single
// punctuation characters; comments are dropped.
std::vector<std::string> simple_tokens(const std::string &text) {
  static const std::regex token(R"(%[^\n]*|"[^"]*"|[\w.+-]+|\S)");
  std::vector<std::string> tokens;
  for (std::sregex_iterator i(text.begin(), text.end(), token), end; i != end; ++i)
    if (i->str()[0] != '%') tokens.push_back(i->str());
  return tokens;
}

Reference read_reference(const std::string &text) {
  Reference r;
  std::vector<std::string> t = simple_tokens(text);
  for (std::size_t i = 0; i + 1 < t.size(); ++i) {
    if (t[i] == "node" && t[i + 2] == "{") {
      std::size_t count = 1;
      std::size_t j = i + 3;
      for (; t[j] != "}"; ++j)
        if (t[j] == "states") {
          count = 0;
          for (j += 3; t[j] != ")"; ++j) ++count;
        }
      r.states[t[i + 1]] = count;
      r.order.push_back(t[i + 1]);
      i = j;
    } else if (t[i] == "potential" && t[i + 1] == "(") {
      Reference::Potential p;
      p.child = t[i + 2];
      std::size_t j = i + 3;
      if (t[j] == "|")
        for (++j; t[j] != ")"; ++j) p.parents.push_back(t[j]);
      for (; t[j] != "}"; ++j)
        if (t[j] == "data")
          for (j += 2; t[j] != ";"; ++j)
            if (t[j] != "(" && t[j] != ")") p.data.push_back(std::strtod(t[j].c_str(), nullptr));
      r.potentials.push_back(std::move(p));
      i = j;
    }
  }
  return r;
}

TEST(NetParserNetworks, EveryNetworkMatchesAnIndependentReading) {
  std::vector<std::string> files;
  for (const auto &entry : fs::directory_iterator(ORVEL_NETWORKS))
    if (entry.path().extension() == ".net") files.push_back(entry.path().string());
  ASSERT_GE(files.size(), 15u);
  for (const std::string &file : files) {
    SCOPED_TRACE(file);
    Messages messages;
    ov_domain_t d = ov_net_parse_domain(file.c_str(), collect, &messages);
    ASSERT_NE(d, nullptr) << (messages.lines.empty() ? "" : messages.lines[0]);
    EXPECT_TRUE(messages.lines.empty());
    EXPECT_STREQ(ov_domain_get_file_name(d), file.c_str());
    Reference ref = read_reference(read_file(file));
    // Nodes in file order.
    std::vector<std::string> names;
    for (ov_node_t n = ov_domain_get_first_node(d); n != nullptr; n = ov_node_get_next(n))
      names.push_back(ov_node_get_name(n));
    EXPECT_EQ(names, ref.order);
    for (const auto &[name, count] : ref.states)
      EXPECT_EQ(ov_node_get_number_of_states(node(d, name.c_str())), static_cast<ov_count_t>(count)) << name;
    ASSERT_EQ(ref.potentials.size(), ref.order.size());
    for (const auto &p : ref.potentials) {
      ov_node_t child = node(d, p.child.c_str());
      ASSERT_NE(child, nullptr);
      std::vector<std::string> parents;
      for (ov_node_t *q = ov_node_get_parents(child); *q != nullptr; ++q) parents.push_back(ov_node_get_name(*q));
      EXPECT_EQ(parents, p.parents) << p.child;
      std::vector<float> values = table_values(child);
      ASSERT_EQ(values.size(), p.data.size()) << p.child;
      for (std::size_t i = 0; i < values.size(); ++i)
        ASSERT_EQ(values[i], static_cast<float>(p.data[i])) << p.child << " cell " << i;
    }
    ov_domain_delete(d);
  }
}

// Each file of tests/data/net/ holds its expectations as comments: "%! code
// <name>" and one "%! <line>: <message>" per message, in order.
TEST(NetParserGolden, MessagesLinesAndCodes) {
  std::vector<fs::path> files;
  for (const auto &entry : fs::directory_iterator(ORVEL_TEST_DATA "/net"))
    if (entry.path().extension() == ".net") files.push_back(entry.path());
  ASSERT_GE(files.size(), 60u);
  for (const fs::path &file : files) {
    SCOPED_TRACE(file.filename().string());
    std::istringstream text(read_file(file.string()));
    std::string line, code;
    std::vector<std::string> expected;
    while (std::getline(text, line) && line.rfind("%! ", 0) == 0) {
      if (line.rfind("%! code ", 0) == 0)
        code = line.substr(8);
      else
        expected.push_back(line.substr(3));
    }
    Messages messages;
    ov_domain_t d = ov_net_parse_domain(file.string().c_str(), collect, &messages);
    EXPECT_EQ(ov_error_name(ov_error_code()), code);
    EXPECT_EQ(d != nullptr, code == "none");
    EXPECT_EQ(messages.lines, expected);
    if (d != nullptr) ov_domain_delete(d);
  }
}

// Sizes and positions are rounded and truncated; the older "discrete node"
// and "discrete decision" forms; attributes in file order.
TEST(NetParserItems, NodeItemsAndAttributesInFileOrder) {
  const char *text = "net { node_size = (80.4 39.6); first = \"1\"; second = \"2\"; }\n"
                     "node A { position = (-10.7 20.2); states = (\"lo\" \"hi\"); x = \"a\"; y = \"b\";\n"
                     "  subtype = interval; state_values = (-infinity 0 +infinity); }\n"
                     "discrete node E {} discrete decision F {}\n";
  ov_domain_t d = ov_net_parse_from_string(text, nullptr);
  ASSERT_NE(d, nullptr) << ov_error_code();
  int w, h, x, y;
  ov_domain_get_node_size(d, &w, &h);
  EXPECT_EQ(w, 80);
  EXPECT_EQ(h, 40);
  ov_node_get_position(node(d, "A"), &x, &y);
  EXPECT_EQ(x, -10);
  EXPECT_EQ(y, 20);
  EXPECT_EQ(ov_node_get_state_value(node(d, "A"), 0), -1.7976931348623157e308);
  EXPECT_EQ(ov_node_get_state_value(node(d, "A"), 2), 1.7976931348623157e308);
  ov_attribute_t a = ov_domain_get_first_attribute(d);
  ASSERT_NE(a, nullptr);
  EXPECT_STREQ(ov_attribute_get_key(a), "first");
  EXPECT_STREQ(ov_attribute_get_key(ov_attribute_get_next(a)), "second");
  EXPECT_STREQ(ov_attribute_get_key(ov_node_get_first_attribute(node(d, "A"))), "x");
  EXPECT_EQ(ov_node_get_category(node(d, "E")), ov_category_chance);
  EXPECT_EQ(ov_node_get_category(node(d, "F")), ov_category_decision);
  EXPECT_EQ(ov_domain_get_first_node(d), node(d, "A")) << "file order";
  ov_domain_delete(d);
}

TEST(NetParserItems, NestedAndFlatFormsGiveTheSameTable) {
  const std::string head = "node A { states = (\"a\" \"b\"); } node B { states = (\"a\" \"b\"); }\n"
                           "node C { states = (\"a\" \"b\" \"c\"); }\npotential (C | A B) { data = ";
  for (const char *data : {"(((1 2 3) (4 5 6)) ((7 8 9) (10 11 12)))", "(1 2 3 4 5 6 7 8 9 10 11 12)"}) {
    ov_domain_t d = ov_net_parse_from_string((head + data + "; }\n").c_str(), nullptr);
    ASSERT_NE(d, nullptr) << data;
    EXPECT_EQ(table_values(node(d, "C")), (std::vector<float>{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}));
    ov_domain_delete(d);
  }
}

TEST(NetParserItems, ConditionalGaussianTables) {
  const char *text = "node A { states = (\"a\" \"b\"); }\ncontinuous node X {}\ncontinuous node C {}\n"
                     "potential (A) { data = (0.5 0.5); }\npotential (X) { data = normal(0, 1); }\n"
                     "potential (C | A X) { data = ( normal(1 + 2 * X - X, 1) normal(-X - 3 + 0.5 * X, 4) ); }\n";
  ov_domain_t d = ov_net_parse_from_string(text, nullptr);
  ASSERT_NE(d, nullptr) << ov_error_code();
  ov_node_t C = node(d, "C"), X = node(d, "X");
  // The child stands between the discrete and the continuous parents.
  ov_node_t *nodes = ov_table_get_nodes(ov_node_get_table(C));
  EXPECT_EQ(nodes[0], node(d, "A"));
  EXPECT_EQ(nodes[1], C);
  EXPECT_EQ(nodes[2], X);
  EXPECT_EQ(ov_node_get_alpha(C, 0), 1.0);
  EXPECT_EQ(ov_node_get_beta(C, X, 0), 1.0);
  EXPECT_EQ(ov_node_get_gamma(C, 0), 1.0);
  EXPECT_EQ(ov_node_get_alpha(C, 1), -3.0);
  EXPECT_EQ(ov_node_get_beta(C, X, 1), -0.5);
  EXPECT_EQ(ov_node_get_gamma(C, 1), 4.0);
  EXPECT_EQ(ov_node_get_gamma(X, 0), 1.0);
  ov_domain_delete(d);
}

TEST(NetParserItems, EmptyModelSlotsAndLearningTables) {
  const char *text = "node A { states = (\"a\" \"b\"); }\nnode B { states = (\"p\" \"q\"); }\n"
                     "potential (B | A) { model_nodes = (A); samples_per_interval = 7;\n"
                     "  model_data = ( Distribution(0.1, 0.9), ); data = ((0.1 0.9) (0.5 0.5));\n"
                     "  experience = (3 4); fading = (1 0.5); }\n";
  ov_domain_t d = ov_net_parse_from_string(text, nullptr);
  ASSERT_NE(d, nullptr) << ov_error_code();
  ov_node_t B = node(d, "B");
  ov_model_t model = ov_node_get_model(B);
  ASSERT_NE(model, nullptr);
  EXPECT_EQ(ov_model_get_number_of_samples_per_interval(model), 7);
  EXPECT_NE(ov_model_get_expression(model, 0), nullptr);
  EXPECT_EQ(ov_model_get_expression(model, 1), nullptr);
  ASSERT_NE(B->experience_table, nullptr);
  EXPECT_EQ(B->experience_table->data[1], 4.0f);
  EXPECT_EQ(B->fading_table->data[1], 0.5f);
  ov_domain_delete(d);
}

TEST(NetParserItems, ChainGraphPotentialsMergeComponents) {
  const char *text = "node A { states = (\"a\" \"b\"); } node B { states = (\"a\" \"b\"); }\n"
                     "node C { states = (\"a\" \"b\"); } node E { states = (\"a\" \"b\"); }\n"
                     "potential (A) { data = (0.5 0.5); }\n"
                     "potential (B C | A) { data = (((1 2) (3 4)) ((5 6) (7 8))); }\n"
                     "potential (C E) { data = (1 2 3 4); }\n";
  ov_domain_t d = ov_net_parse_from_string(text, nullptr);
  ASSERT_NE(d, nullptr) << ov_error_code();
  ASSERT_EQ(d->chain_components.size(), 1u);
  orvel::ChainComponent *component = d->chain_components[0].get();
  EXPECT_EQ(component->members.size(), 3u);
  EXPECT_EQ(component->potentials.size(), 2u);
  for (const char *name : {"B", "C", "E"}) EXPECT_EQ(node(d, name)->chain_component, component) << name;
  EXPECT_EQ(node(d, "A")->chain_component, nullptr);
  EXPECT_EQ(component->potentials[0]->data[7], 8.0f);
  EXPECT_EQ(node(d, "B")->table, nullptr);
  ov_domain_delete(d);
}

TEST(NetParserItems, OldNodeFormat) {
  const char *text = "dom \"Label\" 10 20 2\nlung \"Lung\" 1 2 (\"yes\" \"no\") smoke\n ((0.1 0.9) (0.01 0.99))\n"
                     "smoke \"Smoke\" -1.5 3 (\"yes\" \"no\") (0.5 0.5)\n";
  ov_domain_t d = ov_net_parse_from_string(text, nullptr);
  ASSERT_NE(d, nullptr) << ov_error_code();
  EXPECT_STREQ(ov_domain_get_attribute(d, "name"), "dom");
  EXPECT_STREQ(ov_domain_get_attribute(d, "label"), "Label");
  int w, h;
  ov_domain_get_node_size(d, &w, &h);
  EXPECT_EQ(w, 20);
  EXPECT_EQ(h, 40);
  ov_node_t lung = node(d, "lung"), smoke = node(d, "smoke");
  EXPECT_EQ(ov_node_get_number_of_states(smoke), 2);
  EXPECT_EQ(ov_node_get_parents(lung)[0], smoke);
  EXPECT_EQ(table_values(lung), (std::vector<float>{0.1f, 0.9f, 0.01f, 0.99f}));
  int x, y;
  ov_node_get_position(smoke, &x, &y);
  EXPECT_EQ(x, -2); // -1.5 * 2 + 0.5, truncated
  EXPECT_EQ(y, 6);
  EXPECT_EQ(ov_domain_get_first_node(d), lung);
  ov_domain_delete(d);
}

TEST(NetParserItems, StringLocationsAreByteCounts) {
  static std::vector<std::pair<std::uint32_t, std::string>> seen;
  seen.clear();
  auto handler = [](std::uint32_t location, ov_string_t message) { seen.emplace_back(location, message); };
  EXPECT_EQ(ov_net_parse_from_string("node A {}\nnode A {}", handler), nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_twice);
  ASSERT_EQ(seen.size(), 1u);
  EXPECT_EQ(seen[0].first, 16u);
  EXPECT_EQ(seen[0].second, "a node with name `A' already exists");
}

TEST(NetParserItems, StreamsStayTheCallers) {
  std::string path = temp_file("stream.net", "node A {}\n");
  std::FILE *file = std::fopen(path.c_str(), "r");
  ov_domain_t d = ov_net_parse(file, nullptr);
  ASSERT_NE(d, nullptr);
  EXPECT_EQ(ov_domain_get_file_name(d), nullptr);
  EXPECT_EQ(std::fclose(file), 0);
  ov_domain_delete(d);
  EXPECT_EQ(ov_net_parse_domain("/nonexistent/file.net", nullptr, nullptr), nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_io);
}

struct LoaderLog {
  std::vector<std::string> asked;
  std::string directory;
};

void loader(ov_string_t name, ov_class_collection_t collection, void *data) {
  auto *log = static_cast<LoaderLog *>(data);
  log->asked.push_back(name);
  std::string path = log->directory + "/orvel_net_" + name + ".net";
  ov_net_parse_classes(path.c_str(), collection, loader, nullptr, data);
}

TEST(NetParserClasses, InstancesBindingsAndLoader) {
  temp_file("Inner.net", "class Inner {\n inputs = (i);\n outputs = (o);\n node i { states = (\"a\" \"b\"); }\n"
                         " node o { states = (\"a\" \"b\"); }\n potential (i) {}\n potential (o | i) {}\n}\n");
  std::string outer = temp_file("Outer.net", "class Outer {\n node s { states = (\"a\" \"b\"); }\n"
                                             " instance m : Inner (i = s; r = o) { label = \"inst\"; }\n"
                                             " node t { states = (\"a\" \"b\"); }\n potential (t | m.o) {}\n"
                                             " outputs = (t);\n}\n");
  ov_class_collection_t cc = ov_new_class_collection();
  LoaderLog log{{}, fs::temp_directory_path().string()};
  ASSERT_EQ(ov_net_parse_classes(outer.c_str(), cc, loader, nullptr, &log), ov_error_none);
  EXPECT_EQ(log.asked, std::vector<std::string>{"Inner"});
  ov_class_t inner = ov_cc_get_class_by_name(cc, "Inner");
  ov_class_t outer_class = ov_cc_get_class_by_name(cc, "Outer");
  ASSERT_NE(inner, nullptr);
  ASSERT_NE(outer_class, nullptr);
  ov_node_t m = ov_class_get_node_by_name(outer_class, "m");
  ov_node_t s = ov_class_get_node_by_name(outer_class, "s");
  ov_node_t i = ov_class_get_node_by_name(inner, "i");
  EXPECT_EQ(ov_node_get_input(m, i), s);
  ov_node_t r = ov_class_get_node_by_name(outer_class, "r");
  ASSERT_NE(r, nullptr);
  EXPECT_EQ(ov_node_get_parents(ov_class_get_node_by_name(outer_class, "t"))[0], r);
  EXPECT_STREQ(ov_node_get_label(m), "inst");
  EXPECT_EQ(ov_class_get_outputs(outer_class)[0], ov_class_get_node_by_name(outer_class, "t"));
  EXPECT_STREQ(ov_class_get_file_name(outer_class), outer.c_str());
  ov_cc_delete(cc);
}

// Each row of tests/data/net_class_errors.tsv: a file of classes, the code
// it fails with and its first message; of the collection only the class
// it held before stays.
TEST(NetParserClasses, ClassErrors) {
  const auto rows = orvel::test::golden_rows("net_class_errors.tsv");
  ASSERT_GE(rows.size(), 16u);
  for (const auto &row : rows) {
    ASSERT_EQ(row.size(), 3u) << row[0];
    SCOPED_TRACE(row[0]);
    std::string path = temp_file("classes.net", row[0]);
    ov_class_collection_t cc = ov_new_class_collection();
    ASSERT_NE(ov_cc_new_class(cc), nullptr);
    Messages messages;
    EXPECT_EQ(
        ov_error_name(static_cast<ov_error_t>(ov_net_parse_classes(path.c_str(), cc, nullptr, collect, &messages))),
        row[1]);
    ASSERT_FALSE(messages.lines.empty());
    EXPECT_EQ(messages.lines[0], row[2]);
    EXPECT_NE(ov_cc_get_members(cc)[0], nullptr);
    EXPECT_EQ(ov_cc_get_members(cc)[1], nullptr);
    ov_cc_delete(cc);
  }
}

TEST(NetParserNodeLists, NamesInFileOrder) {
  ov_domain_t d = ov_net_parse_from_string("node A {} node B {}", nullptr);
  ASSERT_NE(d, nullptr);
  std::string path = temp_file("nodes.txt", "B A\n% comment\nB\n");
  ov_node_t *list = ov_domain_parse_nodes(d, path.c_str(), nullptr, nullptr);
  ASSERT_NE(list, nullptr);
  EXPECT_EQ(list[0], node(d, "B"));
  EXPECT_EQ(list[1], node(d, "A"));
  EXPECT_EQ(list[2], node(d, "B"));
  EXPECT_EQ(list[3], nullptr);
  std::free(list);
  Messages messages;
  path = temp_file("nodes.txt", "A\nZ\n");
  EXPECT_EQ(ov_domain_parse_nodes(d, path.c_str(), collect, &messages), nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_parse);
  EXPECT_EQ(messages.lines, std::vector<std::string>{"2: node `Z' not found"});
  path = temp_file("nodes.txt", "A 3\n");
  messages.lines.clear();
  EXPECT_EQ(ov_domain_parse_nodes(d, path.c_str(), collect, &messages), nullptr);
  EXPECT_EQ(messages.lines, std::vector<std::string>{"1: node name expected"});
  ov_domain_delete(d);
}

TEST(NetParserHostile, BadInputFailsCleanly) {
  std::string long_name(100000, 'n');
  std::string deep(200000, '(');
  std::string garbage;
  for (int i = 0; i < 4096; ++i) garbage.push_back(static_cast<char>((i * 7919 + 13) % 255 + 1));
  const std::string asia = read_file(ORVEL_NETWORKS "/asia.net");
  const std::vector<std::string> inputs = {
      asia.substr(0, asia.size() / 2),
      asia.substr(0, asia.size() - 3),
      garbage,
      "node " + long_name + " {}\nnode " + long_name + " {}\n",
      "node A { states = (\"a\" \"b\"); }\npotential (A) { data = " + deep + "; }\n",
      "node A { position = (1e308 -1e308); } node B { position = (nan inf); }\n"
      "potential (A) { data = (1e400); }\n",
      "net { node_size = (1e300 1e300); }\nnode A { states = (\"" + long_name + "\"); }\n",
      "node A { states = (\"a\" \"b\"); }\nnode B { states = (\"a\" \"b\"); }\npotential (B | A) { data = " + deep +
          "; }\n",
  };
  for (std::size_t i = 0; i < inputs.size(); ++i) {
    SCOPED_TRACE(i);
    Messages messages;
    std::string path = temp_file("hostile.net", inputs[i]);
    ov_domain_t d = ov_net_parse_domain(path.c_str(), collect, &messages);
    if (d == nullptr) {
      EXPECT_NE(ov_error_code(), ov_error_none);
      ASSERT_FALSE(messages.lines.empty());
      for (const std::string &m : messages.lines) EXPECT_LT(m.size(), 600u);
    } else {
      ov_domain_delete(d);
    }
  }
  // The truncated and deep inputs must fail.
  EXPECT_EQ(ov_net_parse_from_string(inputs[4].c_str(), nullptr), nullptr);
  EXPECT_EQ(ov_net_parse_from_string(inputs[1].c_str(), nullptr), nullptr);
}

// A stream over a text whose reads fail once `fail_at` bytes have been
// read: the read that would go past them returns an error instead.
struct FailingSource {
  std::string text;
  std::size_t fail_at = 0, position = 0;
};

std::FILE *failing_stream(FailingSource &source) {
  cookie_io_functions_t io{};
  io.read = [](void *cookie, char *buffer, std::size_t size) -> ssize_t {
    auto *s = static_cast<FailingSource *>(cookie);
    if (s->position >= s->fail_at) return -1;
    const std::size_t end = std::min(s->text.size(), s->fail_at);
    const std::size_t n = std::min(size, end - std::min(end, s->position));
    std::memcpy(buffer, s->text.data() + s->position, n);
    s->position += n;
    return static_cast<ssize_t>(n);
  };
  io.seek = [](void *cookie, off64_t *offset, int whence) -> int {
    auto *s = static_cast<FailingSource *>(cookie);
    if (whence != SEEK_SET) *offset += static_cast<off64_t>(whence == SEEK_CUR ? s->position : s->text.size());
    s->position = static_cast<std::size_t>(*offset);
    return 0;
  };
  return fopencookie(&source, "r", io);
}

// A read that fails is io and never the end of the source: a directory,
// memory that cannot be read, and streams that fail after every possible
// number of bytes of a small file in either grammar (including at its very
// end), whatever token the failure cuts.
TEST(NetParserHostile, ReadErrorsAreIo) {
  const std::string dir = fs::temp_directory_path().string();
  Messages messages;
  EXPECT_EQ(ov_net_parse_domain(dir.c_str(), collect, &messages), nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_io);
  EXPECT_EQ(messages.lines, std::vector<std::string>{"1: could not read input"});
  for (const char *unreadable : {dir.c_str(), "/proc/self/mem"}) {
    SCOPED_TRACE(unreadable);
    EXPECT_EQ(ov_net_parse_domain(unreadable, nullptr, nullptr), nullptr);
    EXPECT_EQ(ov_error_code(), ov_error_io);
    ov_class_collection_t cc = ov_new_class_collection();
    EXPECT_EQ(ov_net_parse_classes(unreadable, cc, nullptr, nullptr, nullptr), ov_error_io);
    EXPECT_EQ(ov_cc_get_members(cc)[0], nullptr);
    ov_cc_delete(cc);
    ov_domain_t d = ov_net_parse_from_string("node A {}", nullptr);
    EXPECT_EQ(ov_domain_parse_nodes(d, unreadable, nullptr, nullptr), nullptr);
    EXPECT_EQ(ov_error_code(), ov_error_io);
    ov_domain_delete(d);
  }
  const std::vector<std::string> texts = {
      "net { label = \"a \\\"b\\\"\"; }\nnode A { states = (\"y\" \"n\"); position = (-10 25); }\n"
      "node B { states = (\"y\" \"n\"); }\npotential (A) { data = (0.25 0.75); }\n"
      "potential (B | A) { data = ((0.125 0.875) (1 0)); }\n",
      "dom \"Label\" 10 20 2\nlung \"Lung\" 1 2 (\"yes\" \"no\") smoke\n ((0.1 0.9) (0.01 0.99))\n"
      "smoke \"Smoke\" -1.5 3 (\"yes\" \"no\") (0.5 0.5)\n"};
  for (const std::string &text : texts) {
    for (std::size_t n = 0; n <= text.size() + 1; ++n) {
      SCOPED_TRACE(n);
      FailingSource source{text, n};
      std::FILE *stream = failing_stream(source);
      ASSERT_NE(stream, nullptr);
      ov_domain_t d = ov_net_parse(stream, nullptr);
      if (n > text.size()) {
        // No failure: the whole text reads, through the same stream.
        ASSERT_NE(d, nullptr) << ov_error_code();
        EXPECT_NE(ov_domain_get_first_node(d), nullptr);
        ov_domain_delete(d);
      } else {
        EXPECT_EQ(d, nullptr);
        EXPECT_EQ(ov_error_code(), ov_error_io);
        if (d != nullptr) ov_domain_delete(d);
      }
      std::fclose(stream);
    }
  }
}

} // namespace
