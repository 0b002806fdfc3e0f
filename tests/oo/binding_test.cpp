// Input bindings of instances, and the substitution of an instance's class.
#include <gtest/gtest.h>

#include <map>
#include <random>
#include <string>

#include "oo/oo_fixture.h"

namespace orvel::test {
namespace {

using BindingTest = OoTest;

// Inputs are added, bound, unbound and removed at random, also by deleting
// the input node, and actual nodes are deleted; a map from input to actual
// is the reference.
TEST_F(BindingTest, BindingsStayInLineWithTheInputs) {
  ov_class_t part = make_class("Part"), whole = make_class("Whole");
  std::vector<ov_node_t> actuals;
  for (int i = 0; i < 40; ++i) actuals.push_back(make_node(whole, ("a" + std::to_string(i)).c_str()));
  std::vector<ov_node_t> instances;
  for (int i = 0; i < 3; ++i) instances.push_back(ov_class_new_instance(whole, part));
  std::map<std::pair<ov_node_t, ov_node_t>, ov_node_t> expected; // (instance, input) -> actual
  std::vector<ov_node_t> inputs;
  std::mt19937 random(777);
  int made = 0;

  for (int step = 0; step < 300; ++step) {
    unsigned op = random() % 7;
    if (op == 6 && actuals.size() > 1) {
      ov_node_t actual = actuals.back();
      actuals.pop_back();
      ASSERT_EQ(ov_node_delete(actual), ov_error_none);
      std::erase_if(expected, [&](const auto &binding) { return binding.second == actual; });
    } else if (op == 0 || op == 6 || inputs.empty()) {
      ov_node_t node = make_node(part, ("in" + std::to_string(made++)).c_str());
      ASSERT_EQ(ov_node_add_to_inputs(node), ov_error_none);
      inputs.push_back(node);
    } else {
      std::size_t k = random() % inputs.size();
      ov_node_t input = inputs[k], instance = instances[random() % instances.size()];
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

TEST_F(BindingTest, SubstituteMovesBindingsAndClonesByName) {
  ov_class_t old_class = make_class("Old"), whole = make_class("Whole");
  ov_node_t in_x = make_input(old_class, "x"), in_y = make_input(old_class, "y");
  ov_node_t out_p = make_output(old_class, "p", {"lo", "hi"}), out_q = make_output(old_class, "q");
  ov_node_t instance = ov_class_new_instance(whole, old_class);
  ov_node_t actual_x = make_node(whole, "ax"), actual_y = make_node(whole, "ay");
  ASSERT_EQ(ov_node_set_input(instance, in_x, actual_x), ov_error_none);
  ASSERT_EQ(ov_node_set_input(instance, in_y, actual_y), ov_error_none);
  ov_node_t clone_p = ov_node_get_output(instance, out_p), clone_q = ov_node_get_output(instance, out_q);
  ov_class_t next = make_class("Next");
  ov_node_t extra_in = make_input(next, "extra"), new_y = make_input(next, "y"), new_x = make_input(next, "x");
  ov_node_t new_r = make_output(next, "r"), new_q = make_output(next, "q");
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
  EXPECT_EQ(ov_node_get_master(clone_r), new_r);
  EXPECT_EQ(ov_node_get_instance(clone_r), instance);
  EXPECT_EQ(ov_node_get_master(clone_p), new_p);
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

TEST_F(BindingTest, SubstituteWithoutOldInputsLeavesNoBindings) {
  ov_class_t a = make_class("A"), b = make_class("B"), whole = make_class("Whole");
  ov_node_t b_in = make_input(b, "in"), instance = ov_class_new_instance(whole, a);
  EXPECT_EQ(ov_node_substitute_class(instance, b), ov_error_none);
  EXPECT_EQ(ov_node_get_input(instance, b_in), nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_none);
  EXPECT_TRUE(instance->output_clones.empty());
}

// Moved clones that are outputs of the container pass the new master's
// state description on to their own clones.
TEST_F(BindingTest, SubstituteRefreshesClonesOfMovedClones) {
  ov_class_t a = make_class("A"), b = make_class("B"), middle = make_class("Middle"), outer = make_class("Outer");
  make_output(a, "o", {"s0", "s1"});
  ov_node_t b_o = make_output(b, "o", {"s0", "s1"}), instance = ov_class_new_instance(middle, a);
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

} // namespace
} // namespace orvel::test
