// Input bindings of instances, and the substitution of an instance's class.
#include <gtest/gtest.h>

#include <map>
#include <random>
#include <string>

#include "model/graph.h"
#include "oo/oo_fixture.h"

namespace orvel::test {
namespace {

using BindingTest = OoTest;

TEST_F(BindingTest, BindingRules) {
  ov_class_t part = make_class("Part");
  ov_class_t whole = make_class("Whole");
  ov_node_t in_chance = make_input(part, "in_chance");
  ov_node_t in_cont = make_input(part, "in_cont", ov_category_chance, ov_kind_continuous);
  ov_node_t hidden = make_node(part, "hidden");
  ov_node_t instance = ov_class_new_instance(whole, part);
  ov_node_t chance = make_node(whole, "chance");
  ov_node_t continuous = make_node(whole, "continuous", ov_category_chance, ov_kind_continuous);
  ov_class_t elsewhere = make_class("Elsewhere");
  ov_node_t foreign = make_node(elsewhere, "foreign");

  // Unbound inputs read as null without error, before any array exists.
  EXPECT_EQ(ov_node_get_input(instance, in_chance), nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_none);
  EXPECT_TRUE(instance->input_bindings.empty());

  // Refusals, none of which changes anything.
  EXPECT_EQ(ov_node_set_input(instance, in_chance, continuous), ov_error_usage); // kind
  EXPECT_EQ(ov_node_set_input(instance, in_cont, chance), ov_error_usage);       // kind
  EXPECT_EQ(ov_node_set_input(instance, in_chance, foreign), ov_error_usage);    // other class
  EXPECT_EQ(ov_node_set_input(instance, hidden, chance), ov_error_usage);        // not an input
  EXPECT_EQ(ov_node_set_input(instance, in_chance, nullptr), ov_error_usage);
  EXPECT_EQ(ov_node_set_input(instance, nullptr, chance), ov_error_usage);
  EXPECT_EQ(ov_node_set_input(chance, in_chance, chance), ov_error_usage); // not an instance
  EXPECT_EQ(ov_node_set_input(nullptr, in_chance, chance), ov_error_usage);
  EXPECT_EQ(ov_node_set_input(instance, in_chance, instance), ov_error_usage); // an instance node
  EXPECT_TRUE(instance->input_bindings.empty());

  // Categories must agree too.
  ov_class_t decision_part = make_class("DecisionPart");
  ov_class_t decision_whole = make_class("DecisionWhole");
  ov_node_t in_d = make_input(decision_part, "in_d", ov_category_decision);
  ov_node_t decision_instance = ov_class_new_instance(decision_whole, decision_part);
  ov_node_t d = make_node(decision_whole, "d", ov_category_decision);
  ov_node_t c = make_node(decision_whole, "c");
  EXPECT_EQ(ov_node_set_input(decision_instance, in_d, c), ov_error_usage);
  EXPECT_EQ(ov_node_get_input(decision_instance, in_d), nullptr);
  EXPECT_EQ(ov_node_set_input(decision_instance, in_d, d), ov_error_none);
  EXPECT_EQ(ov_node_get_input(decision_instance, in_d), d);

  // Binding the second input grows the array to the number of inputs.
  EXPECT_EQ(ov_node_set_input(instance, in_cont, continuous), ov_error_none);
  EXPECT_EQ(instance->input_bindings.size(), 2u);
  EXPECT_EQ(ov_node_get_input(instance, in_cont), continuous);
  EXPECT_EQ(ov_node_get_input(instance, in_chance), nullptr);
  EXPECT_EQ(ov_node_set_input(instance, in_chance, chance), ov_error_none);
  EXPECT_EQ(ov_node_get_input(instance, in_chance), chance);
  // Rebinding replaces.
  ov_node_t other = make_node(whole, "other");
  EXPECT_EQ(ov_node_set_input(instance, in_chance, other), ov_error_none);
  EXPECT_EQ(ov_node_get_input(instance, in_chance), other);

  EXPECT_EQ(ov_node_get_input(instance, hidden), nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_usage);
  EXPECT_EQ(ov_node_get_input(chance, in_chance), nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_usage);
  EXPECT_EQ(ov_node_unset_input(instance, hidden), ov_error_usage);
  EXPECT_EQ(ov_node_unset_input(chance, in_chance), ov_error_usage);

  EXPECT_EQ(ov_node_unset_input(instance, in_chance), ov_error_none);
  EXPECT_EQ(ov_node_get_input(instance, in_chance), nullptr);
  EXPECT_EQ(ov_node_get_input(instance, in_cont), continuous);

  // An input added after the binding array was made reads as unbound.
  ov_node_t late = make_input(part, "late");
  EXPECT_EQ(ov_node_get_input(instance, late), nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_none);
  EXPECT_EQ(ov_node_unset_input(instance, late), ov_error_none); // no slot: nothing to clear
  EXPECT_EQ(ov_node_set_input(instance, late, chance), ov_error_none);
  EXPECT_EQ(instance->input_bindings.size(), 3u);
  EXPECT_EQ(ov_node_get_input(instance, late), chance);

  // Deleting an actual node clears its bindings.
  EXPECT_EQ(ov_node_delete(chance), ov_error_none);
  EXPECT_EQ(ov_node_get_input(instance, late), nullptr);
  EXPECT_EQ(ov_node_get_input(instance, in_cont), continuous);
}

// Inputs are added, bound, unbound and removed at random, also by deleting
// the input node; a map from input to actual is the reference.
TEST_F(BindingTest, BindingsStayInLineWithTheInputs) {
  ov_class_t part = make_class("Part");
  ov_class_t whole = make_class("Whole");
  std::vector<ov_node_t> actuals;
  for (int i = 0; i < 5; ++i) actuals.push_back(make_node(whole, ("a" + std::to_string(i)).c_str()));
  std::vector<ov_node_t> instances;
  for (int i = 0; i < 3; ++i) instances.push_back(ov_class_new_instance(whole, part));
  std::map<std::pair<ov_node_t, ov_node_t>, ov_node_t> expected; // (instance, input) -> actual
  std::vector<ov_node_t> inputs;
  std::mt19937 random(777);
  int made = 0;

  for (int step = 0; step < 300; ++step) {
    unsigned op = random() % 6;
    if (op == 0 || inputs.empty()) {
      ov_node_t node = make_node(part, ("in" + std::to_string(made++)).c_str());
      ASSERT_EQ(ov_node_add_to_inputs(node), ov_error_none);
      inputs.push_back(node);
    } else {
      std::size_t k = random() % inputs.size();
      ov_node_t input = inputs[k];
      ov_node_t instance = instances[random() % instances.size()];
      if (op <= 2) {
        ov_node_t actual = actuals[random() % actuals.size()];
        ASSERT_EQ(ov_node_set_input(instance, input, actual), ov_error_none);
        expected[{instance, input}] = actual;
      } else if (op == 3) {
        ASSERT_EQ(ov_node_unset_input(instance, input), ov_error_none);
        expected.erase({instance, input});
      } else {
        std::vector<std::size_t> lengths;
        for (ov_node_t each : instances) lengths.push_back(each->input_bindings.size());
        if (op == 4) {
          ASSERT_EQ(ov_node_remove_from_inputs(input), ov_error_none);
          ASSERT_EQ(ov_node_delete(input), ov_error_none);
        } else {
          ASSERT_EQ(ov_node_delete(input), ov_error_none); // leaves the inputs on its way
        }
        inputs.erase(inputs.begin() + static_cast<std::ptrdiff_t>(k));
        for (ov_node_t each : instances) expected.erase({each, input});
        // The arrays keep their length.
        for (std::size_t i = 0; i < instances.size(); ++i) EXPECT_EQ(instances[i]->input_bindings.size(), lengths[i]);
      }
    }
    ASSERT_EQ(entries(ov_class_get_inputs(part)), inputs);
    for (ov_node_t instance : instances)
      for (ov_node_t input : inputs) {
        auto it = expected.find({instance, input});
        ASSERT_EQ(ov_node_get_input(instance, input), it == expected.end() ? nullptr : it->second) << "step " << step;
      }
  }
}

// ---------------------------------------------------------------- substitution

class SubstituteTest : public OoTest {
protected:
  void SetUp() override {
    OoTest::SetUp();
    old_class = make_class("Old");
    in_x = make_input(old_class, "x");
    in_y = make_input(old_class, "y");
    out_p = make_output(old_class, "p", {"lo", "hi"});
    out_q = make_output(old_class, "q");
    whole = make_class("Whole");
    instance = ov_class_new_instance(whole, old_class);
    actual_x = make_node(whole, "ax");
    actual_y = make_node(whole, "ay");
    ASSERT_EQ(ov_node_set_input(instance, in_x, actual_x), ov_error_none);
    ASSERT_EQ(ov_node_set_input(instance, in_y, actual_y), ov_error_none);
    clone_p = ov_node_get_output(instance, out_p);
    clone_q = ov_node_get_output(instance, out_q);
  }

  // Checks that the instance is still the old class's, untouched.
  void expect_unchanged() {
    EXPECT_EQ(ov_node_get_instance_class(instance), old_class);
    EXPECT_EQ(entries(ov_class_get_instances(old_class)), (std::vector<ov_node_t>{instance}));
    EXPECT_EQ(ov_node_get_input(instance, in_x), actual_x);
    EXPECT_EQ(ov_node_get_input(instance, in_y), actual_y);
    EXPECT_EQ(entries(instance->output_clones.data()), (std::vector<ov_node_t>{clone_p, clone_q}));
    EXPECT_EQ(clone_p->master, out_p);
    EXPECT_EQ(node_count(whole), 5u);
  }

  ov_class_t old_class = nullptr, whole = nullptr;
  ov_node_t in_x = nullptr, in_y = nullptr, out_p = nullptr, out_q = nullptr;
  ov_node_t instance = nullptr, actual_x = nullptr, actual_y = nullptr, clone_p = nullptr, clone_q = nullptr;
};

TEST_F(SubstituteTest, MovesBindingsAndClonesByName) {
  ov_class_t next = make_class("Next");
  ov_node_t extra_in = make_input(next, "extra");
  ov_node_t new_y = make_input(next, "y");
  ov_node_t new_x = make_input(next, "x");
  ov_node_t new_r = make_output(next, "r");
  ov_node_t new_q = make_output(next, "q");
  ov_node_t new_p = make_output(next, "p", {"lo", "hi"});

  EXPECT_EQ(ov_node_substitute_class(instance, next), ov_error_none);
  EXPECT_EQ(ov_node_get_instance_class(instance), next);
  EXPECT_EQ(entries(ov_class_get_instances(old_class)), (std::vector<ov_node_t>{}));
  EXPECT_EQ(entries(ov_class_get_instances(next)), (std::vector<ov_node_t>{instance}));

  EXPECT_EQ(instance->input_bindings.size(), 3u); // the number of the new inputs
  EXPECT_EQ(ov_node_get_input(instance, new_x), actual_x);
  EXPECT_EQ(ov_node_get_input(instance, new_y), actual_y);
  EXPECT_EQ(ov_node_get_input(instance, extra_in), nullptr);

  // The old clones moved, keeping their identity; r got a new one.
  ASSERT_EQ(instance->output_clones.size(), 3u);
  EXPECT_EQ(ov_node_get_output(instance, new_p), clone_p);
  EXPECT_EQ(ov_node_get_output(instance, new_q), clone_q);
  ov_node_t clone_r = ov_node_get_output(instance, new_r);
  EXPECT_EQ(clone_r, instance->output_clones[0]);
  EXPECT_EQ(clone_r->master, new_r);
  EXPECT_EQ(clone_r->instance, instance);
  EXPECT_EQ(clone_p->master, new_p);
  EXPECT_EQ(clone_p->state_labels, new_p->state_labels); // shares the new master's arrays
  EXPECT_EQ(node_count(whole), 6u);

  // Changes of the new master reach the moved clone, those of the old don't.
  EXPECT_EQ(ov_node_set_state_label(new_p, 1, "high"), ov_error_none);
  EXPECT_STREQ(ov_node_get_state_label(clone_p, 1), "high");
  EXPECT_EQ(ov_node_set_state_label(out_p, 1, "HI"), ov_error_none);
  EXPECT_STREQ(ov_node_get_state_label(clone_p, 1), "high");

  // The old class can go now.
  EXPECT_EQ(ov_class_delete(old_class), ov_error_none);
  // Back and forth: the same class again is success at once.
  EXPECT_EQ(ov_node_substitute_class(instance, next), ov_error_none);
}

TEST_F(SubstituteTest, RefusalsChangeNothing) {
  EXPECT_EQ(ov_node_substitute_class(instance, nullptr), ov_error_usage);
  EXPECT_EQ(ov_node_substitute_class(actual_x, old_class), ov_error_usage);
  EXPECT_EQ(ov_node_substitute_class(nullptr, old_class), ov_error_usage);
  ov_class_collection_t other = ov_new_class_collection();
  EXPECT_EQ(ov_node_substitute_class(instance, ov_cc_new_class(other)), ov_error_usage);
  EXPECT_EQ(ov_cc_delete(other), ov_error_none);
  expect_unchanged();

  // A new class that uses the container makes a cycle.
  ov_class_t user = make_class("User");
  ASSERT_NE(ov_class_new_instance(user, whole), nullptr);
  EXPECT_EQ(ov_node_substitute_class(instance, user), ov_error_cyclic_instance_hierarchy);
  EXPECT_EQ(ov_node_substitute_class(instance, whole), ov_error_cyclic_instance_hierarchy);
  expect_unchanged();

  // A missing input, an input of another category, no inputs at all.
  ov_class_t missing_input = make_class("MissingInput");
  make_input(missing_input, "x");
  make_output(missing_input, "p", {"lo", "hi"});
  make_output(missing_input, "q");
  EXPECT_EQ(ov_node_substitute_class(instance, missing_input), ov_error_usage);
  ov_class_t wrong_category = make_class("WrongCategory");
  make_input(wrong_category, "x");
  make_input(wrong_category, "y", ov_category_decision);
  make_output(wrong_category, "p", {"lo", "hi"});
  make_output(wrong_category, "q");
  EXPECT_EQ(ov_node_substitute_class(instance, wrong_category), ov_error_usage);
  ov_class_t no_inputs = make_class("NoInputs");
  make_output(no_inputs, "p", {"lo", "hi"});
  make_output(no_inputs, "q");
  EXPECT_EQ(ov_node_substitute_class(instance, no_inputs), ov_error_usage);
  // A same-named node that is no input doesn't count.
  ov_class_t hidden_input = make_class("HiddenInput");
  make_input(hidden_input, "x");
  make_node(hidden_input, "y");
  make_output(hidden_input, "p", {"lo", "hi"});
  make_output(hidden_input, "q");
  EXPECT_EQ(ov_node_substitute_class(instance, hidden_input), ov_error_usage);
  expect_unchanged();

  // A missing output, and outputs that are not compatible.
  ov_class_t missing_output = make_class("MissingOutput");
  make_input(missing_output, "x");
  make_input(missing_output, "y");
  make_output(missing_output, "p", {"lo", "hi"});
  EXPECT_EQ(ov_node_substitute_class(instance, missing_output), ov_error_usage);
  ov_class_t other_labels = make_class("OtherLabels");
  make_input(other_labels, "x");
  make_input(other_labels, "y");
  make_output(other_labels, "p", {"lo", "high"});
  make_output(other_labels, "q");
  EXPECT_EQ(ov_node_substitute_class(instance, other_labels), ov_error_usage);
  ov_class_t other_count = make_class("OtherCount");
  make_input(other_count, "x");
  make_input(other_count, "y");
  make_output(other_count, "p", {"lo", "mid", "hi"});
  make_output(other_count, "q");
  EXPECT_EQ(ov_node_substitute_class(instance, other_count), ov_error_usage);
  expect_unchanged();

  // A new output that cannot be cloned into the container: the clones made
  // for the others are deleted again.
  make_node(whole, "decide", ov_category_decision);
  ov_class_t with_level = make_class("WithLevel");
  make_input(with_level, "x");
  make_input(with_level, "y");
  make_output(with_level, "p", {"lo", "hi"});
  make_output(with_level, "q");
  make_output(with_level, "first_new");
  ov_node_t level = make_node(with_level, "level", ov_category_chance, ov_kind_continuous);
  ASSERT_EQ(ov_node_add_to_outputs(level), ov_error_none);
  std::uint32_t before = node_count(whole);
  EXPECT_EQ(ov_node_substitute_class(instance, with_level), ov_error_cg_influence_diagrams_not_supported);
  EXPECT_EQ(node_count(whole), before);
  EXPECT_EQ(as_domain(whole)->continuous_count, 0u);
  EXPECT_EQ(entries(ov_class_get_instances(with_level)), (std::vector<ov_node_t>{}));
  EXPECT_EQ(ov_node_get_instance_class(instance), old_class);
  EXPECT_EQ(entries(instance->output_clones.data()), (std::vector<ov_node_t>{clone_p, clone_q}));
}

TEST_F(BindingTest, SubstituteWithoutOldInputsLeavesNoBindings) {
  ov_class_t a = make_class("A");
  ov_class_t b = make_class("B");
  ov_class_t whole = make_class("Whole");
  ov_node_t b_in = make_input(b, "in");
  ov_node_t instance = ov_class_new_instance(whole, a);
  EXPECT_EQ(ov_node_substitute_class(instance, b), ov_error_none);
  EXPECT_TRUE(instance->input_bindings.empty());
  EXPECT_EQ(ov_node_get_input(instance, b_in), nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_none);
  EXPECT_TRUE(instance->output_clones.empty());
}

// Moved clones that are outputs of the container pass the new master's
// state description on to their own clones.
TEST_F(BindingTest, SubstituteRefreshesClonesOfMovedClones) {
  ov_class_t a = make_class("A");
  ov_class_t b = make_class("B");
  ov_class_t middle = make_class("Middle");
  ov_class_t outer = make_class("Outer");
  make_output(a, "o", {"s0", "s1"});
  ov_node_t b_o = make_output(b, "o", {"s0", "s1"});
  ov_node_t instance = ov_class_new_instance(middle, a);
  ov_node_t clone = instance->output_clones[0];
  ASSERT_EQ(ov_node_add_to_outputs(clone), ov_error_none);
  ov_node_t outer_instance = ov_class_new_instance(outer, middle);
  ov_node_t outer_clone = ov_node_get_output(outer_instance, clone);

  ASSERT_EQ(ov_node_substitute_class(instance, b), ov_error_none);
  EXPECT_EQ(clone->master, b_o);
  EXPECT_EQ(outer_clone->state_labels, b_o->state_labels);
  EXPECT_EQ(ov_node_set_state_label(b_o, 0, "zero"), ov_error_none);
  EXPECT_STREQ(ov_node_get_state_label(outer_clone, 0), "zero");
}

TEST(Compatibility, FollowsStateDescriptions) {
  ov_domain_t domain = ov_new_domain();
  auto node = [&](ov_category_t category, ov_kind_t kind) { return ov_domain_new_node(domain, category, kind); };
  ov_node_t a = node(ov_category_chance, ov_kind_discrete);
  ov_node_t b = node(ov_category_chance, ov_kind_discrete);
  EXPECT_TRUE(interchangeable(a, b));
  EXPECT_FALSE(interchangeable(a, node(ov_category_decision, ov_kind_discrete)));
  {
    // Continuous nodes need a domain without decisions.
    ov_domain_t cg = ov_new_domain();
    ov_node_t x = ov_domain_new_node(cg, ov_category_chance, ov_kind_continuous);
    ov_node_t y = ov_domain_new_node(cg, ov_category_chance, ov_kind_continuous);
    ov_node_t z = ov_domain_new_node(cg, ov_category_chance, ov_kind_discrete);
    EXPECT_TRUE(interchangeable(x, y));
    EXPECT_FALSE(interchangeable(x, z));
    EXPECT_FALSE(interchangeable(z, x));
    EXPECT_EQ(ov_domain_delete(cg), ov_error_none);
  }

  // Labels, with the automatic "" for an unset one.
  ASSERT_EQ(ov_node_set_state_label(a, 0, "x"), ov_error_none);
  EXPECT_FALSE(interchangeable(a, b));
  ASSERT_EQ(ov_node_set_state_label(b, 0, "x"), ov_error_none);
  EXPECT_TRUE(interchangeable(a, b));

  // Subtype and number values.
  ASSERT_EQ(ov_node_set_subtype(a, ov_subtype_number), ov_error_none);
  EXPECT_FALSE(interchangeable(a, b));
  ASSERT_EQ(ov_node_set_subtype(b, ov_subtype_number), ov_error_none);
  EXPECT_TRUE(interchangeable(a, b)); // both unset: -1.0
  ASSERT_EQ(ov_node_set_state_value(a, 0, 3.0), ov_error_none);
  EXPECT_FALSE(interchangeable(a, b));
  ASSERT_EQ(ov_node_set_state_value(b, 0, 3.0), ov_error_none);
  EXPECT_TRUE(interchangeable(a, b));
  // Labels don't matter for numbered nodes.
  ASSERT_EQ(ov_node_set_state_label(b, 0, "y"), ov_error_none);
  EXPECT_TRUE(interchangeable(a, b));

  // Intervals compare the upper bound too.
  ov_node_t c = node(ov_category_chance, ov_kind_discrete);
  ov_node_t d = node(ov_category_chance, ov_kind_discrete);
  ASSERT_EQ(ov_node_set_subtype(c, ov_subtype_interval), ov_error_none);
  ASSERT_EQ(ov_node_set_subtype(d, ov_subtype_interval), ov_error_none);
  EXPECT_TRUE(interchangeable(c, d)); // both infinite bounds
  ASSERT_EQ(ov_node_set_state_value(c, 1, 10.0), ov_error_none);
  EXPECT_FALSE(interchangeable(c, d));
  ASSERT_EQ(ov_node_set_state_value(d, 1, 10.0), ov_error_none);
  EXPECT_TRUE(interchangeable(c, d));
  EXPECT_EQ(ov_domain_delete(domain), ov_error_none);
}

} // namespace
} // namespace orvel::test
