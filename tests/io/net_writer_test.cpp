// The NET writer: files written by hand are read and written back byte for
// byte, classes built through the public calls are written and compared
// with them; name repair, failing streams, file names and the order of a
// collection.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "io/golden_rows.h"
#include "io/net_writer.h"
#include "model/domain.h"
#include "oo/class.h"
#include "orvel.h"
#include "table/table.h"

namespace {

using orvel::test::read_file;
using orvel::test::written;

using orvel::as_domain;

std::string expected(const char *name) { return read_file(std::string(ORVEL_TEST_DATA) + "/net_out/" + name); }

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

// Files written by hand hold every sort of node, attribute and table: a
// domain with labels, subtypes, state values, positions, learning tables
// and models, CG tables, small table shapes and a chain potential. Read and
// written again, each comes back byte for byte.
TEST(NetWriter, GoldenFilesWriteBackUnchanged) {
  for (const char *name : {"domain.net", "cg.net", "shapes.net", "chain.net"}) {
    SCOPED_TRACE(name);
    ov_domain_t d = ov_net_parse_domain((std::string(ORVEL_TEST_DATA) + "/net_out/" + name).c_str(), nullptr, nullptr);
    ASSERT_NE(d, nullptr) << ov_error_name(ov_error_code());
    EXPECT_EQ(written(d), expected(name));
    ov_domain_delete(d);
  }
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

TEST_F(ClassGolden, BadFileKeepsNoName) {
  ov_class_t c = make_class("C");
  EXPECT_EQ(ov_cc_save_as_net(cc, "/nonexistent-dir/c.net"), ov_error_io);
  EXPECT_EQ(ov_class_get_file_name(c), nullptr);
  EXPECT_EQ(ov_class_save_as_net(c, "/nonexistent-dir/c.net"), ov_error_io);
}

// A model in a class: its slots line up under the first one. G is made
// after P, so it is written first (tests/data/net_out/model_class.net).
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
  EXPECT_EQ(written(reinterpret_cast<ov_domain_t>(gen)), expected("model_class.net"));
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
