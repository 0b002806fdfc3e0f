// The NET writer: domains and classes built through the public calls are
// written and compared byte for byte with files written by hand; failing
// streams, file names and the order of a collection.
#include <gtest/gtest.h>

#include <cfloat>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "expr/model.h"
#include "io/net_writer.h"
#include "model/chain_component.h"
#include "model/domain.h"
#include "oo/class.h"
#include "orvel.h"
#include "table/table.h"

namespace {

using orvel::as_domain;

std::string read_file(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

std::string expected(const char *name) { return read_file(std::string(ORVEL_TEST_DATA) + "/net_out/" + name); }

// What ov_domain_write_net prints for a domain or class.
std::string written(ov_domain_t domain) {
  char *buffer = nullptr;
  std::size_t size = 0;
  std::FILE *stream = open_memstream(&buffer, &size);
  EXPECT_NE(stream, nullptr);
  EXPECT_EQ(ov_domain_write_net(domain, stream), ov_error_none);
  std::fclose(stream);
  std::string text(buffer, size);
  std::free(buffer);
  return text;
}

ov_node_t named(ov_domain_t domain, const char *name, ov_category_t category = ov_category_chance,
                ov_kind_t kind = ov_kind_discrete) {
  ov_node_t node = ov_domain_new_node(domain, category, kind);
  EXPECT_NE(node, nullptr);
  EXPECT_EQ(ov_node_set_name(node, name), ov_error_none);
  return node;
}

void set_states(ov_node_t node, std::vector<const char *> labels) {
  ASSERT_EQ(ov_node_set_number_of_states(node, static_cast<ov_count_t>(labels.size())), ov_error_none);
  for (std::size_t i = 0; i < labels.size(); ++i)
    if (labels[i] != nullptr) {
      ASSERT_EQ(ov_node_set_state_label(node, static_cast<ov_index_t>(i), labels[i]), ov_error_none);
    }
}

void set_data(ov_node_t node, std::vector<float> values) {
  ov_table_t table = ov_node_get_table(node);
  ASSERT_NE(table, nullptr);
  ASSERT_EQ(ov_table_get_size(table), static_cast<ov_count_t>(values.size()));
  ov_number_t *data = ov_table_get_data(table);
  for (std::size_t i = 0; i < values.size(); ++i) data[i] = values[i];
}

// The names of a table's nodes, for checking the order the tables take.
std::string table_order(ov_node_t node) {
  std::string names;
  for (ov_node_t *p = ov_table_get_nodes(ov_node_get_table(node)); *p != nullptr; ++p)
    names += std::string(ov_node_get_name(*p)) + " ";
  return names;
}

// A learning table (experience or fading) over the parents of a node.
ov_table_t learning_table(ov_node_t node, std::int32_t kind, std::vector<float> values) {
  orvel::NodeList parents;
  for (ov_node_t *p = ov_table_get_nodes(ov_node_get_table(node)); *p != nullptr; ++p)
    if (*p != node) parents.push_back(*p);
  orvel::Table *table = orvel::table_new(node->home, parents.data(), kind, orvel::role_plain, false, true);
  EXPECT_NE(table, nullptr);
  table->owner = node;
  EXPECT_EQ(table->size, values.size());
  for (std::size_t i = 0; i < values.size(); ++i) table->data[i] = values[i];
  (kind == ov_table_kind_experience ? node->experience_table : node->fading_table) = table;
  return table;
}

ov_expression_t parse_expression(ov_domain_t domain, const char *text) {
  ov_expression_t expression = ov_domain_string_to_expression(domain, text, nullptr, nullptr);
  EXPECT_NE(expression, nullptr) << text;
  return expression;
}

// ---------------------------------------------------------------- a domain of every sort of node

// The nodes are made newest first, so that the list (newest first) holds
// them in the order of the file.
class DomainGolden : public ::testing::Test {
protected:
  void SetUp() override {
    d = ov_new_domain();
    const char *order[] = {"M2", "M", "E", "U0", "U", "D0", "D", "C", "K", "I", "N", "B", "A"};
    for (const char *name : order) {
      ov_category_t category = name[0] == 'U'   ? ov_category_utility
                               : name[0] == 'D' ? ov_category_decision
                                                : ov_category_chance;
      named(d, name, category);
    }
  }
  void TearDown() override { ov_domain_delete(d); }
  ov_node_t n(const char *name) { return ov_domain_get_node_by_name(d, name); }

  ov_domain_t d = nullptr;
};

TEST_F(DomainGolden, EveryCategoryKindAndSubtype) {
  ASSERT_EQ(ov_domain_set_node_size(d, 100, 50), ov_error_none);
  ASSERT_EQ(ov_domain_set_attribute(d, "first", "tab\there \"q\" back\\slash\r\n"), ov_error_none);
  ASSERT_EQ(ov_domain_set_attribute(d, "second",
                                    "\x01"
                                    "7 and \x01x and \x7f"),
            ov_error_none);

  // A: labelled states, a label with a quote, a position, an attribute.
  set_states(n("A"), {"yes", "no"});
  ASSERT_EQ(ov_node_set_label(n("A"), "Node \"A\""), ov_error_none);
  ASSERT_EQ(ov_node_set_position(n("A"), 10, -20), ov_error_none);
  ASSERT_EQ(ov_node_set_attribute(n("A"), "note", "x\\y"), ov_error_none);
  set_data(n("A"), {0.25f, 0.75f});
  // B: boolean without labels.
  set_states(n("B"), {nullptr, nullptr});
  ASSERT_EQ(ov_node_set_subtype(n("B"), ov_subtype_boolean), ov_error_none);
  ASSERT_EQ(ov_node_set_position(n("B"), 0, 5), ov_error_none);
  ASSERT_EQ(ov_node_add_parent(n("B"), n("A")), ov_error_none);
  set_data(n("B"), {0.1f, 0.9f, 0.123456789f, 0.876543211f});
  // N: numbered, without labels.
  set_states(n("N"), {nullptr, nullptr, nullptr});
  ASSERT_EQ(ov_node_set_subtype(n("N"), ov_subtype_number), ov_error_none);
  const double numbers[] = {0.0, 1.5, 123456789.0};
  for (int i = 0; i < 3; ++i) ASSERT_EQ(ov_node_set_state_value(n("N"), i, numbers[i]), ov_error_none);
  set_data(n("N"), {1e-05f, 0.5f, 0.49999f});
  // I: interval from the lowest to the highest double.
  set_states(n("I"), {nullptr, nullptr});
  ASSERT_EQ(ov_node_set_subtype(n("I"), ov_subtype_interval), ov_error_none);
  ASSERT_EQ(ov_node_set_state_value(n("I"), 0, -DBL_MAX), ov_error_none);
  ASSERT_EQ(ov_node_set_state_value(n("I"), 1, 0.0), ov_error_none);
  ASSERT_EQ(ov_node_set_state_value(n("I"), 2, DBL_MAX), ov_error_none);
  set_data(n("I"), {0.5f, 0.5f});
  // K: states without labels; its parents show every kind of state text.
  set_states(n("K"), {nullptr, nullptr});
  ASSERT_EQ(ov_node_add_parent(n("K"), n("I")), ov_error_none);
  ASSERT_EQ(ov_node_add_parent(n("K"), n("B")), ov_error_none);
  ASSERT_EQ(table_order(n("K")), "B I K ");
  set_data(n("K"), {1, 0, 0.5f, 0.5f, 0, 1, 0.2f, 0.8f});
  // C: three discrete parents, with experience and fading tables.
  set_states(n("C"), {"c1", "c2"});
  ASSERT_EQ(ov_node_add_parent(n("C"), n("N")), ov_error_none);
  ASSERT_EQ(ov_node_add_parent(n("C"), n("A")), ov_error_none);
  ASSERT_EQ(table_order(n("C")), "A N C ");
  set_data(n("C"), {0.1f, 0.9f, 0.2f, 0.8f, 0.3f, 0.7f, 0.4f, 0.6f, 0.5f, 0.5f, 0.6f, 0.4f});
  learning_table(n("C"), ov_table_kind_experience, {1, 2, 3, 4, 5, 6});
  learning_table(n("C"), ov_table_kind_fading, {1, 1, 1, 0.5f, 0.5f, 0.5f});
  // Decisions, with and without parents.
  set_states(n("D"), {"go", "stay"});
  ASSERT_EQ(ov_node_add_parent(n("D"), n("A")), ov_error_none);
  ASSERT_EQ(ov_node_add_parent(n("D"), n("B")), ov_error_none);
  set_states(n("D0"), {"on", "off"});
  ASSERT_EQ(ov_node_set_position(n("D0"), -3, 0), ov_error_none);
  // Utilities: over a decision and a chance node, and over nothing.
  ASSERT_EQ(ov_node_add_parent(n("U"), n("D")), ov_error_none);
  ASSERT_EQ(ov_node_add_parent(n("U"), n("A")), ov_error_none);
  ASSERT_EQ(table_order(n("U")), "A D ");
  set_data(n("U"), {10, -5, 0, 2.5f});
  set_data(n("U0"), {42});
  // E: a chance node without a table.
  ASSERT_EQ(ov_node_add_parent(n("E"), n("A")), ov_error_none);
  // M: a stale model over A, so no data; M2: a model without model nodes
  // whose table is current, and more samples per interval.
  set_states(n("M"), {"m1", "m2"});
  ASSERT_EQ(ov_node_add_parent(n("M"), n("A")), ov_error_none);
  ov_node_t model_nodes[] = {n("A"), nullptr};
  ov_model_t model = ov_node_new_model(n("M"), model_nodes);
  ASSERT_NE(model, nullptr);
  ASSERT_EQ(ov_model_set_expression(model, 0, parse_expression(d, "Distribution(0.2, 0.8)")), ov_error_none);
  ASSERT_EQ(ov_model_set_expression(model, 1, parse_expression(d, "Distribution(1, 0)")), ov_error_none);
  set_states(n("M2"), {"lo", "hi"});
  ASSERT_EQ(ov_node_add_parent(n("M2"), n("N")), ov_error_none);
  ov_node_t no_nodes[] = {nullptr};
  ov_model_t model2 = ov_node_new_model(n("M2"), no_nodes);
  ASSERT_NE(model2, nullptr);
  ASSERT_EQ(
      ov_model_set_expression(model2, 0, parse_expression(d, "if(N < 1, Distribution(1, 0), Distribution(0, 1))")),
      ov_error_none);
  ASSERT_EQ(ov_model_set_number_of_samples_per_interval(model2, 50), ov_error_none);
  set_data(n("M2"), {1, 0, 0, 1, 0, 1});
  model2->table_is_stale = 0; // as if generated

  EXPECT_EQ(written(d), expected("domain.net"));
}

// Conditional Gaussian tables (a domain with continuous nodes has no
// decisions or utilities).
TEST(NetWriter, ConditionalGaussianTables) {
  ov_domain_t d = ov_new_domain();
  auto n = [&](const char *name) { return ov_domain_get_node_by_name(d, name); };
  for (const char *name : {"Y", "Z", "X"}) named(d, name, ov_category_chance, ov_kind_continuous);
  set_states(named(d, "B"), {"b0", "b1"});
  set_states(named(d, "A"), {"yes", "no"});
  set_data(n("A"), {0.5f, 0.5f});
  set_data(n("B"), {0.5f, 0.5f});
  // X: continuous with a discrete parent; Y with a discrete and two
  // continuous parents.
  ASSERT_EQ(ov_node_add_parent(n("X"), n("A")), ov_error_none);
  ASSERT_EQ(ov_node_set_alpha(n("X"), 1.5, 0), ov_error_none);
  ASSERT_EQ(ov_node_set_gamma(n("X"), 2, 0), ov_error_none);
  ASSERT_EQ(ov_node_set_alpha(n("X"), 0, 1), ov_error_none);
  ASSERT_EQ(ov_node_set_gamma(n("X"), 0.25, 1), ov_error_none);
  ASSERT_EQ(ov_node_add_parent(n("Y"), n("B")), ov_error_none);
  ASSERT_EQ(ov_node_add_parent(n("Y"), n("X")), ov_error_none);
  ov_node_t Z = n("Z");
  ASSERT_EQ(ov_node_add_parent(n("Y"), Z), ov_error_none);
  ASSERT_EQ(table_order(n("Y")), "B Y X Z ");
  ASSERT_EQ(ov_node_set_alpha(n("Y"), -2, 0), ov_error_none);
  ASSERT_EQ(ov_node_set_beta(n("Y"), -1, n("X"), 0), ov_error_none);
  ASSERT_EQ(ov_node_set_beta(n("Y"), 2.5, Z, 0), ov_error_none);
  ASSERT_EQ(ov_node_set_gamma(n("Y"), 1, 0), ov_error_none);
  ASSERT_EQ(ov_node_set_beta(n("Y"), -0.5, n("X"), 1), ov_error_none);
  ASSERT_EQ(ov_node_set_beta(n("Y"), 1, Z, 1), ov_error_none);
  ASSERT_EQ(ov_node_set_gamma(n("Y"), 3, 1), ov_error_none);
  ASSERT_EQ(ov_node_set_gamma(Z, 1, 0), ov_error_none);
  EXPECT_EQ(written(d), expected("cg.net"));
  ov_domain_delete(d);
}

// ---------------------------------------------------------------- small tables

TEST(NetWriter, TableShapes) {
  ov_domain_t d = ov_new_domain();
  // A continuous node with no parents: a bare normal; a probability table
  // over one node: flat, and over a node of one state and its parent.
  ov_node_t w = named(d, "W", ov_category_chance, ov_kind_continuous);
  ASSERT_EQ(ov_node_set_gamma(w, 0.5, 0), ov_error_none);
  ov_node_t p = named(d, "P");
  set_states(p, {"only"});
  set_data(p, {1});
  ov_node_t q = named(d, "Q");
  set_states(q, {"a", "b", "c"});
  ASSERT_EQ(ov_node_add_parent(q, p), ov_error_none);
  set_data(q, {0.2f, 0.3f, 0.5f});
  EXPECT_EQ(written(d), expected("shapes.net"));
  ov_domain_delete(d);
}

// Undirected links: one chain potential over two children and a parent.
TEST(NetWriter, ChainPotential) {
  ov_domain_t d = ov_new_domain();
  ov_node_t r = named(d, "R"), q = named(d, "Q"), p = named(d, "P");
  set_states(p, {"p0", "p1"});
  set_states(q, {"q0", "q1"});
  set_states(r, {"r0", "r1"});
  ASSERT_EQ(ov_node_add_parent(q, p), ov_error_none);
  ASSERT_EQ(ov_node_add_parent(r, p), ov_error_none);
  set_data(p, {0.5f, 0.5f});
  ov_node_t list[] = {p, q, r, nullptr};
  orvel::Table *table = orvel::table_new(d, list, ov_table_kind_probability, orvel::role_plain, false, true);
  ASSERT_NE(table, nullptr);
  for (std::uint32_t i = 0; i < 8; ++i) table->data[i] = static_cast<float>(i + 1);
  auto component = std::make_unique<orvel::ChainComponent>();
  component->domain = d;
  component->members.push_back(q);
  component->members.push_back(r);
  component->potentials.push_back(table);
  q->chain_component = r->chain_component = component.get();
  d->chain_components.push_back(std::move(component));
  EXPECT_EQ(written(d), expected("chain.net"));
  ov_domain_delete(d);
}

// Names that a file cannot hold are repaired before a domain is written.
TEST(NetWriter, RepairsNamesOfADomain) {
  ov_domain_t d = ov_new_domain();
  ov_node_t a = named(d, "a_b");
  ov_node_t b = named(d, "ab");
  b->name.emplace("a-b"); // as a program could not set it
  orvel::name_table_rename(d, b, std::optional<std::string>("ab"));
  ov_node_t c = ov_domain_new_node(d, ov_category_chance, ov_kind_discrete); // unnamed
  (void)c;
  std::string text = written(d);
  EXPECT_STREQ(ov_node_get_name(a), "a_b");
  EXPECT_STREQ(ov_node_get_name(b), "a_b_");
  EXPECT_NE(text.find("\nnode a_b_\n"), std::string::npos) << text;
  EXPECT_NE(text.find("\nnode C3\n"), std::string::npos) << text;
  ov_domain_delete(d);
}

// ---------------------------------------------------------------- failures and files

TEST(NetWriter, FailingStreamsGiveIo) {
  ov_domain_t d = ov_new_domain();
  named(d, "A");
  // Writes into a stream opened for reading fail at the first call.
  std::FILE *input = std::fopen("/dev/null", "r");
  ASSERT_NE(input, nullptr);
  EXPECT_EQ(ov_domain_write_net(d, input), ov_error_io);
  EXPECT_EQ(ov_error_code(), ov_error_io);
  std::fclose(input);
  // A full device fails at the latest when the stream is flushed.
  if (std::FILE *full = std::fopen("/dev/full", "w")) {
    EXPECT_EQ(ov_domain_write_net(d, full), ov_error_io);
    std::fclose(full);
  }
  EXPECT_EQ(ov_domain_write_net(d, nullptr), ov_error_usage);
  EXPECT_EQ(ov_domain_save_as_net(d, "/nonexistent-dir/x.net"), ov_error_io);
  EXPECT_EQ(ov_domain_get_file_name(d), nullptr);
  ov_domain_delete(d);
}

TEST(NetWriter, SaveKeepsTheFileName) {
  ov_domain_t d = ov_new_domain();
  named(d, "A");
  std::string path = testing::TempDir() + "net_writer_save.net";
  ASSERT_EQ(ov_domain_save_as_net(d, path.c_str()), ov_error_none);
  EXPECT_STREQ(ov_domain_get_file_name(d), path.c_str());
  EXPECT_EQ(read_file(path), written(d));
  std::remove(path.c_str());
  ov_domain_delete(d);
}

// ---------------------------------------------------------------- classes

class ClassGolden : public ::testing::Test {
protected:
  void SetUp() override { cc = ov_new_class_collection(); }
  void TearDown() override { EXPECT_EQ(ov_cc_delete(cc), ov_error_none); }
  ov_class_t make_class(const char *name) {
    ov_class_t cls = ov_cc_new_class(cc);
    EXPECT_EQ(ov_class_set_name(cls, name), ov_error_none);
    return cls;
  }
  ov_class_collection_t cc = nullptr;
};

// Top holds an instance of Mid, which holds an instance of Leaf; the
// collection holds them in the opposite order, and the file must define
// each class before it is instantiated.
TEST_F(ClassGolden, CollectionInInstanceOrder) {
  ov_class_t top = make_class("Top");
  ov_class_t mid = make_class("Mid");
  ov_class_t leaf = make_class("Leaf");

  // Leaf: two inputs, two outputs; an output that depends on an input.
  ov_domain_t l = as_domain(leaf);
  ov_node_t out2 = named(l, "out2"), out1 = named(l, "out1", ov_category_chance, ov_kind_continuous);
  ov_node_t in2 = named(l, "in2"), in1 = named(l, "in1");
  set_states(in1, {"s", "t"});
  set_states(in2, {"x", "y"});
  set_states(out2, {"u", "v"});
  ASSERT_EQ(ov_node_add_to_inputs(in1), ov_error_none);
  ASSERT_EQ(ov_node_add_to_inputs(in2), ov_error_none);
  ASSERT_EQ(ov_node_add_parent(out2, in1), ov_error_none);
  set_data(in1, {0.5f, 0.5f});
  set_data(in2, {0.5f, 0.5f});
  set_data(out2, {0.9f, 0.1f, 0.1f, 0.9f});
  ASSERT_EQ(ov_node_set_gamma(out1, 1, 0), ov_error_none);
  ASSERT_EQ(ov_node_add_to_outputs(out1), ov_error_none);
  ASSERT_EQ(ov_node_add_to_outputs(out2), ov_error_none);
  ASSERT_EQ(ov_class_set_node_size(leaf, 60, 30), ov_error_none);
  ASSERT_EQ(ov_class_set_attribute(leaf, "purpose", "leaf"), ov_error_none);

  // Mid: an instance of Leaf with one bound input and one used output.
  ov_domain_t m = as_domain(mid);
  ov_node_t child = named(m, "child");
  set_states(child, {"c", "d"});
  ov_node_t source = named(m, "source");
  set_states(source, {"s", "t"});
  set_data(source, {0.3f, 0.7f});
  ov_node_t inst = ov_class_new_instance(mid, leaf);
  ASSERT_NE(inst, nullptr);
  ASSERT_EQ(ov_node_set_name(inst, "inner"), ov_error_none);
  ASSERT_EQ(ov_node_set_label(inst, "the leaf"), ov_error_none);
  ASSERT_EQ(ov_node_set_position(inst, 4, 8), ov_error_none);
  ASSERT_EQ(ov_node_set_input(inst, in1, source), ov_error_none);
  ov_node_t clone2 = ov_node_get_output(inst, out2);
  ASSERT_EQ(ov_node_add_parent(child, clone2), ov_error_none);
  set_data(child, {0.6f, 0.4f, 0.1f, 0.9f});
  ASSERT_EQ(ov_node_add_to_outputs(child), ov_error_none);
  ASSERT_EQ(ov_node_add_to_inputs(source), ov_error_none);

  // Top: two instances of Mid; the first has no bindings at all, the second
  // only an output binding with a new name.
  ov_domain_t t = as_domain(top);
  ov_node_t second = ov_class_new_instance(top, mid);
  ov_node_t first = ov_class_new_instance(top, mid);
  ASSERT_EQ(ov_node_set_name(first, "first"), ov_error_none);
  ASSERT_EQ(ov_node_set_name(second, "second"), ov_error_none);
  ASSERT_EQ(ov_node_set_name(ov_node_get_output(second, child), "result"), ov_error_none);
  (void)t;

  std::string path = testing::TempDir() + "net_writer_classes.net";
  ASSERT_EQ(ov_cc_save_as_net(cc, path.c_str()), ov_error_none);
  EXPECT_EQ(read_file(path), expected("classes.net"));
  for (ov_class_t c : {top, mid, leaf}) EXPECT_STREQ(ov_class_get_file_name(c), path.c_str());
  // One class alone is the same text as its part of the collection.
  std::string alone = written(reinterpret_cast<ov_domain_t>(leaf));
  EXPECT_EQ(expected("classes.net").compare(0, alone.size(), alone), 0) << alone;
  std::remove(path.c_str());
}

TEST_F(ClassGolden, EmptyCollectionAndBadFile) {
  EXPECT_EQ(ov_cc_save_as_net(cc, "unused.net"), ov_error_usage);
  ov_class_t c = make_class("C");
  EXPECT_EQ(ov_cc_save_as_net(cc, "/nonexistent-dir/c.net"), ov_error_io);
  EXPECT_EQ(ov_class_get_file_name(c), nullptr);
  EXPECT_EQ(ov_class_save_as_net(c, "/nonexistent-dir/c.net"), ov_error_io);
}

// A model in a class: its slots line up under the first one. G is made
// after P, so it is written first.
TEST_F(ClassGolden, ModelInAClass) {
  ov_class_t gen = make_class("Gen");
  ov_domain_t g = as_domain(gen);
  ov_node_t p = named(g, "P"), child = named(g, "G");
  set_states(child, {"g0", "g1"});
  set_states(p, {"p0", "p1"});
  ASSERT_EQ(ov_node_add_parent(child, p), ov_error_none);
  ov_node_t model_nodes[] = {p, nullptr};
  ov_model_t model = ov_node_new_model(child, model_nodes);
  ASSERT_NE(model, nullptr);
  ASSERT_EQ(
      ov_model_set_expression(model, 0, ov_class_string_to_expression(gen, "Distribution(0.5, 0.5)", nullptr, nullptr)),
      ov_error_none);
  ASSERT_EQ(
      ov_model_set_expression(model, 1, ov_class_string_to_expression(gen, "Distribution(0, 1)", nullptr, nullptr)),
      ov_error_none);
  const char *text = "class Gen\n{\n\tinputs = ();\n\toutputs = ();\n    node_size = (0 0);\n"
                     "\n    node G\n    {\n\tstates = (\"g0\" \"g1\");\n\tsubtype = label;\n    }\n"
                     "\n    node P\n    {\n\tstates = (\"p0\" \"p1\");\n    }\n"
                     "\n    potential (G | P)\n    {\n\tmodel_nodes = (P);\n"
                     "\tmodel_data  = ( Distribution (0.5, 0.5),\n\t\t\tDistribution (0, 1) );\n    }\n"
                     "\n    potential (P) {}\n"
                     "} % class Gen\n";
  EXPECT_EQ(written(reinterpret_cast<ov_domain_t>(gen)), text);
}

TEST_F(ClassGolden, UnknownSubtypeAndFailingCollectionStream) {
  ov_class_t c = make_class("C");
  ov_node_t node = named(as_domain(c), "A");
  node->subtype = static_cast<ov_subtype_t>(99);
  std::FILE *sink = std::fopen("/dev/null", "w");
  ASSERT_NE(sink, nullptr);
  EXPECT_EQ(ov_domain_write_net(reinterpret_cast<ov_domain_t>(c), sink), ov_error_error);
  std::fclose(sink);
  node->subtype = ov_subtype_label;
  std::FILE *input = std::fopen("/dev/null", "r");
  ASSERT_NE(input, nullptr);
  EXPECT_EQ(orvel::net_write_collection(cc, input), ov_error_io);
  EXPECT_EQ(ov_error_code(), ov_error_io);
  std::fclose(input);
}

} // namespace
