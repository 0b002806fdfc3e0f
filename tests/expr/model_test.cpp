// Models: creation checks, the lazy slot array, storing expressions with
// their reference counts, staleness and the table mark, and what
// graph edits do to a model.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "compile/junction_tree.h"
#include "expr/expression.h"
#include "expr/model.h"
#include "expr_helpers.h"
#include "model/domain.h"
#include "orvel.h"

namespace orvel {
namespace {

class ModelTest : public test::NamedNodes {
protected:
  void SetUp() override {
    NamedNodes::SetUp();
    p1 = make("p1", 2);
    p2 = make("p2", 3);
    p3 = make("p3", 2);
    child = make("child", 2);
    other = make("other", 2);
    link(p1, child);
    link(p2, child);
    link(p3, child);
  }

  // Nodes get their states and links through the records here, so that the
  // tests depend on nothing but the model code.
  ov_node_t make(const char *name, std::uint32_t states) {
    ov_node_t node = named(name);
    node->state_count = states;
    return node;
  }
  static void link(ov_node_t parent, ov_node_t node) {
    node->parents.push_back(parent);
    parent->children.push_back(node);
  }
  ov_model_t model_of(ov_node_t node, std::vector<ov_node_t> nodes) {
    nodes.push_back(nullptr);
    return ov_node_new_model(node, nodes.data());
  }
  ov_expression_t ref(ov_node_t node) { return ov_node_make_expression(node); }

  ov_node_t p1 = nullptr, p2 = nullptr, p3 = nullptr, child = nullptr, other = nullptr;
};

TEST_F(ModelTest, ANullListIsAnEmptyModel) {
  ov_model_t empty = ov_node_new_model(child, nullptr);
  ASSERT_NE(empty, nullptr);
  EXPECT_EQ(ov_node_get_model(child), empty);
  EXPECT_EQ(ov_model_get_nodes(empty)[0], nullptr);
  EXPECT_EQ(ov_model_get_size(empty), 1);
  EXPECT_EQ(empty->table_is_stale, 1);
  EXPECT_EQ(ov_model_get_number_of_samples_per_interval(empty), 25);
}

TEST_F(ModelTest, ANewModelReplacesTheOldAndIsStale) {
  ov_model_t first = model_of(child, {p1});
  ASSERT_NE(first, nullptr);
  ov_expression_t e = ov_number_make_expression(1);
  EXPECT_EQ(ov_model_set_expression(first, 0, e), ov_error_none);
  EXPECT_EQ(e->references, 1);

  ov_junction_tree_s tree;
  child->junction_tree = &tree;
  domain->learning.log_likelihood_valid = 1;
  std::vector<ov_node_t> list{p2, p1, nullptr};
  ov_model_t second = ov_node_new_model(child, list.data());
  ASSERT_NE(second, nullptr);
  EXPECT_EQ(ov_node_get_model(child), second);
  EXPECT_EQ(second->table_is_stale, 1);
  // The table mark reaches the junction tree and the cached log-likelihood.
  EXPECT_TRUE(tree.tables_changed);
  EXPECT_EQ(domain->learning.log_likelihood_valid, 0u);
  child->junction_tree = nullptr;
  // The model keeps its own copy of the list, in the caller's order.
  list[0] = p3;
  EXPECT_EQ(ov_model_get_nodes(second)[0], p2);
  EXPECT_EQ(ov_model_get_nodes(second)[1], p1);
  EXPECT_EQ(ov_model_get_size(second), 6);
}

TEST_F(ModelTest, SizesThatDoNotFit) {
  p1->state_count = 65536;
  p2->state_count = 65536;
  ov_model_t saturated = model_of(child, {p1, p2});
  EXPECT_EQ(ov_model_get_size(saturated), -1);
  EXPECT_EQ(ov_error_code(), ov_error_size_too_large);
  EXPECT_EQ(ov_model_get_expression(saturated, 0), nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_no_memory);
  // A size that fits, but whose pointer array does not.
  p2->state_count = 16384;
  ov_model_t huge = model_of(child, {p1, p2});
  EXPECT_EQ(ov_model_get_size(huge), -1);
  EXPECT_EQ(ov_error_code(), ov_error_no_memory);
  EXPECT_EQ(ov_model_set_expression(huge, 0, nullptr), ov_error_no_memory);
  p1->state_count = 2;
  p2->state_count = 3;
}

TEST_F(ModelTest, StoredExpressionsAreCheckedAndCounted) {
  ov_model_t model = model_of(child, {p1});
  // Only parents may be named, even a node of the same domain is refused.
  ov_expression_t bad = test::make(ov_op_add, {ref(p2), ref(other)});
  EXPECT_EQ(ov_model_set_expression(model, 0, bad), ov_error_invalid_expression);
  EXPECT_EQ(bad->references, 0);
  EXPECT_EQ(ov_model_get_expression(model, 0), nullptr);
  ov_expression_delete(bad);

  // A chance node takes a distribution whatever its subtype.
  ov_expression_t normal = test::make(ov_op_normal, {ref(p3), ov_number_make_expression(1)});
  EXPECT_EQ(ov_model_set_expression(model, 0, normal), ov_error_none);
  // The same expression in many slots.
  EXPECT_EQ(ov_model_set_expression(model, 1, normal), ov_error_none);
  EXPECT_EQ(normal->references, 2);
  // Storing it again where it already is keeps it alive.
  EXPECT_EQ(ov_model_set_expression(model, 1, normal), ov_error_none);
  EXPECT_EQ(normal->references, 2);
  EXPECT_EQ(ov_model_set_expression(model, 0, nullptr), ov_error_none);
  EXPECT_EQ(normal->references, 1);
  EXPECT_EQ(ov_model_get_expression(model, 1), normal);
  // The last slot lets go: the tree is freed (the sanitizers check).
  EXPECT_EQ(ov_model_set_expression(model, 1, nullptr), ov_error_none);

  // Deleting the model releases what it holds.
  ov_expression_t kept = ov_number_make_expression(3);
  EXPECT_EQ(ov_model_set_expression(model, 0, kept), ov_error_none);
  EXPECT_EQ(ov_model_delete(model), ov_error_none);
  EXPECT_EQ(ov_node_get_model(child), nullptr);
}

TEST_F(ModelTest, ChangesMarkTheModelStale) {
  ov_model_t model = model_of(child, {p1});
  model->table_is_stale = 0;
  EXPECT_EQ(ov_model_set_expression(model, 0, nullptr), ov_error_none);
  EXPECT_EQ(model->table_is_stale, 1);

  model->table_is_stale = 0;
  EXPECT_EQ(ov_model_set_number_of_samples_per_interval(model, 25), ov_error_none); // same value still marks
  EXPECT_EQ(model->table_is_stale, 1);
  EXPECT_EQ(ov_model_set_number_of_samples_per_interval(model, 7), ov_error_none);
  EXPECT_EQ(ov_model_get_number_of_samples_per_interval(model), 7);

  // A rejected expression changes nothing.
  model->table_is_stale = 0;
  ov_expression_t bad = ref(other);
  EXPECT_EQ(ov_model_set_expression(model, 0, bad), ov_error_invalid_expression);
  EXPECT_EQ(model->table_is_stale, 0);
  ov_expression_delete(bad);

  // Rippling from a parent whose meaning changes.
  model->table_is_stale = 0;
  EXPECT_EQ(ov_node_set_subtype(p1, ov_subtype_number), ov_error_none);
  EXPECT_EQ(model->table_is_stale, 1);

  int word = 0;
  EXPECT_EQ(ov_model_set_user_data(model, &word), ov_error_none);
  EXPECT_EQ(ov_model_get_user_data(model), &word);
}

TEST_F(ModelTest, ParsingInTheScopeOfAModel) {
  ov_model_t model = model_of(child, {p1});
  ov_expression_t e = ov_string_parse_expression("p1 * 2 + p2", model, nullptr, nullptr);
  ASSERT_NE(e, nullptr);
  EXPECT_EQ(ov_model_set_expression(model, 1, e), ov_error_none);
  EXPECT_EQ(ov_string_parse_expression("nobody", model, nullptr, nullptr), nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_syntax);
}

TEST_F(ModelTest, DeletingTheOwnerDeletesTheModel) {
  ov_model_t model = model_of(child, {p1});
  ov_expression_t e = test::make(ov_op_add, {ref(p1), ov_number_make_expression(1)});
  EXPECT_EQ(ov_model_set_expression(model, 0, e), ov_error_none);
  EXPECT_EQ(ov_model_set_expression(model, 1, e), ov_error_none);
  EXPECT_EQ(ov_node_delete(child), ov_error_none); // no leak under the sanitizers
}

class ModelGraphTest : public test::NamedNodes {
protected:
  ov_node_t make(const char *name, ov_count_t states) {
    ov_node_t node = named(name);
    EXPECT_EQ(ov_node_set_number_of_states(node, states), ov_error_none);
    return node;
  }
  ov_expression_t parse(const char *text) {
    ov_expression_t e = ov_domain_string_to_expression(domain, text, nullptr, nullptr);
    EXPECT_NE(e, nullptr) << text;
    return e;
  }
};

TEST_F(ModelGraphTest, EditsReachTheModel) {
  ov_node_t a = make("a", 2), b = make("b", 3), c = make("c", 2), child = make("child", 2);
  for (ov_node_t parent : {a, b, c}) ASSERT_EQ(ov_node_add_parent(child, parent), ov_error_none);
  ov_node_t model_nodes[] = {a, nullptr};
  ov_model_t model = ov_node_new_model(child, model_nodes);
  ASSERT_NE(model, nullptr);
  ov_expression_t with_b = parse("Normal (b, 1)");
  ov_expression_t with_c = parse("if (c == \"x\", 0.5, a)");
  ASSERT_EQ(ov_model_set_expression(model, 0, with_b), ov_error_none);
  ASSERT_EQ(ov_model_set_expression(model, 1, with_c), ov_error_none);

  // A parent that expressions mention: their slots are cleared.
  ASSERT_EQ(ov_node_remove_parent(child, b), ov_error_none);
  EXPECT_EQ(ov_model_get_expression(model, 0), nullptr);
  EXPECT_EQ(ov_model_get_expression(model, 1), with_c);

  // A switch for an interchangeable node rewrites the references.
  ov_node_t d = make("d", 2);
  ASSERT_EQ(ov_node_switch_parent(child, c, d), ov_error_none);
  EXPECT_TRUE(expression_mentions(with_c, d));
  EXPECT_FALSE(expression_mentions(with_c, c));

  // A new state count of another parent keeps the expressions; of a model
  // node, the slots are made anew.
  ASSERT_EQ(ov_node_set_number_of_states(d, 3), ov_error_none);
  EXPECT_EQ(ov_model_get_expression(model, 1), with_c);
  ov_model_t own = ov_node_new_model(a, nullptr);
  own->table_is_stale = model->table_is_stale = 0;
  ASSERT_EQ(ov_node_set_number_of_states(a, 4), ov_error_none);
  EXPECT_EQ(own->table_is_stale + model->table_is_stale, 2);
  EXPECT_EQ(ov_model_get_size(model), 4);
  EXPECT_EQ(ov_model_get_expression(model, 1), nullptr);

  // Deleting a model node deletes the model.
  ASSERT_EQ(ov_model_set_expression(model, 2, parse("a * 2")), ov_error_none);
  ASSERT_EQ(ov_node_delete(a), ov_error_none);
  EXPECT_EQ(ov_node_get_model(child), nullptr);
}

TEST_F(ModelGraphTest, DeletingAMentionedParentClearsItsSlots) {
  ov_node_t a = make("a", 2), child = make("child", 2);
  ASSERT_EQ(ov_node_add_parent(child, a), ov_error_none);
  ov_model_t model = ov_node_new_model(child, nullptr);
  ov_expression_t e = parse("Distribution (a, 1 - a)");
  ASSERT_EQ(ov_model_set_expression(model, 0, e), ov_error_none);
  ASSERT_EQ(ov_node_delete(a), ov_error_none);
  EXPECT_EQ(ov_model_get_expression(model, 0), nullptr); // no reference to the deleted node remains
  EXPECT_EQ(model->table_is_stale, 1);
}

// Compilation generates the table of a stale model, and refuses one that
// cannot be generated; a model read together with its table is not stale
// and compiles from the table as read.
TEST(ModelCompile, AStaleModelIsGeneratedAndAModelReadWithItsTableIsNot) {
  const std::string head = "node A { states = (\"a\" \"b\"); } node B { states = (\"b0\" \"b1\"); }"
                           "potential (A) { data = (0.25 0.75); } potential (B | A) { ";
  const std::string model = "model_nodes = (A); model_data = (Distribution(0.5, 0.5), Distribution(0.1, 0.9)); ";
  const struct {
    std::string body;
    ov_error_t code;
    float belief; // of B's first state
  } cases[] = {
      {model + "}", ov_error_none, 0.25f * 0.5f + 0.75f * 0.1f},
      {"model_nodes = (A); }", ov_error_invalid_expression, 0},
      {"model_nodes = (A); model_data = (Distribution(0.5, 0.5), ); }", ov_error_invalid_expression, 0},
      {model + "data = ((0.4 0.6) (0.1 0.9)); }", ov_error_none, 0.25f * 0.4f + 0.75f * 0.1f},
  };
  for (const auto &c : cases) {
    ov_domain_t d = ov_net_parse_from_string((head + c.body).c_str(), nullptr);
    ASSERT_NE(d, nullptr) << c.body;
    EXPECT_EQ(ov_domain_compile(d), c.code) << c.body;
    EXPECT_EQ(ov_domain_is_compiled(d), c.code == ov_error_none ? 1 : 0) << c.body;
    if (c.code == ov_error_none) {
      ov_node_t b = ov_domain_get_node_by_name(d, "B");
      EXPECT_NEAR(ov_node_get_belief(b, 0), c.belief, 1e-6);
      // A changed model makes its table stale again: the next propagation
      // generates it.
      ov_model_t m = ov_node_get_model(b);
      ASSERT_EQ(ov_model_set_expression(m, 0, ov_model_get_expression(m, 1)), ov_error_none);
      EXPECT_EQ(ov_domain_propagate(d, ov_equilibrium_sum, ov_mode_normal), ov_error_none);
      EXPECT_NEAR(ov_node_get_belief(b, 0), 0.1f, 1e-6);
    }
    ov_domain_delete(d);
  }
}

} // namespace
} // namespace orvel
