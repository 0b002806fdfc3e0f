// Instances and their output clones, the instance hierarchy, the interface
// of a class.
#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cstring>
#include <random>
#include <set>
#include <string>

#include "oo/oo_fixture.h"

namespace orvel::test {
namespace {

using InstanceTest = OoTest;

TEST_F(InstanceTest, InstanceOfItselfIsACycle) {
  ov_class_t a = make_class("A");
  make_node(a, "x");
  EXPECT_EQ(ov_class_new_instance(a, a), nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_cyclic_instance_hierarchy);
  EXPECT_EQ(node_count(a), 1u);
  EXPECT_EQ(entries(ov_class_get_instances(a)), (std::vector<ov_node_t>{}));
}

TEST_F(InstanceTest, ArgumentChecks) {
  ov_class_t a = make_class("A");
  EXPECT_EQ(ov_class_new_instance(a, nullptr), nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_usage);
  EXPECT_EQ(ov_class_new_instance(nullptr, a), nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_usage);
  // Classes of different collections.
  ov_class_collection_t other = ov_new_class_collection();
  ov_class_t b = ov_cc_new_class(other);
  EXPECT_EQ(ov_class_new_instance(a, b), nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_usage);
  EXPECT_EQ(ov_class_new_instance(b, a), nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_usage);
  EXPECT_EQ(node_count(a) + node_count(b), 0u);
  EXPECT_EQ(ov_cc_delete(other), ov_error_none);

  ov_node_t x = make_node(a, "x");
  EXPECT_EQ(ov_node_get_instance_class(x), nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_usage);
  EXPECT_EQ(ov_node_get_instance_class(nullptr), nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_usage);
}

TEST_F(InstanceTest, InstanceWithoutOutputs) {
  ov_class_t part = make_class("Part");
  ov_class_t whole = make_class("Whole");
  ov_node_t in = make_input(part, "in");
  ov_node_t instance = ov_class_new_instance(whole, part);
  ASSERT_NE(instance, nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_none);
  EXPECT_EQ(ov_node_get_category(instance), ov_category_instance);
  EXPECT_EQ(ov_node_get_kind(instance), ov_kind_discrete);
  EXPECT_EQ(ov_node_get_instance_class(instance), part);
  EXPECT_TRUE(instance->output_clones.empty());
  EXPECT_EQ(node_count(whole), 1u);
  EXPECT_EQ(as_domain(whole)->instance_count, 1u);
  EXPECT_EQ(ov_node_get_output(instance, in), nullptr); // an input is no output
  EXPECT_EQ(ov_error_code(), ov_error_usage);
  // States belong to chance and decision nodes only.
  EXPECT_EQ(ov_node_get_number_of_states(instance), -1);
  // Its automatic name comes from the instance pattern.
  EXPECT_STREQ(ov_node_get_name(instance), "I1");
}

TEST_F(InstanceTest, OutputClonesStandForTheOutputs) {
  ov_class_t part = make_class("Part");
  ov_class_t whole = make_class("Whole");
  ov_node_t hidden = make_node(part, "hidden");
  ov_node_t speed = make_output(part, "speed", {"slow", "fast", "very_fast"});
  ov_node_t choice = make_node(part, "choice", ov_category_decision);
  ASSERT_EQ(ov_node_add_to_outputs(choice), ov_error_none);
  ov_node_t existing = make_node(whole, "existing");

  ov_node_t instance = ov_class_new_instance(whole, part);
  ASSERT_NE(instance, nullptr);
  ASSERT_EQ(instance->output_clones.size(), 2u);
  EXPECT_EQ(node_count(whole), 4u);

  ov_node_t speed_clone = ov_node_get_output(instance, speed);
  ov_node_t choice_clone = ov_node_get_output(instance, choice);
  EXPECT_EQ(speed_clone, instance->output_clones[0]); // in the order of the outputs
  EXPECT_EQ(choice_clone, instance->output_clones[1]);
  EXPECT_EQ(ov_node_get_output(instance, hidden), nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_usage);
  EXPECT_EQ(ov_node_get_output(existing, speed), nullptr); // not an instance
  EXPECT_EQ(ov_error_code(), ov_error_usage);

  for (ov_node_t clone : {speed_clone, choice_clone}) {
    EXPECT_EQ(clone->home, as_domain(whole));
    EXPECT_EQ(clone->instance, instance);
    EXPECT_EQ(clone->table, nullptr);
    EXPECT_FALSE(clone->name.has_value());
  }
  EXPECT_EQ(speed_clone->master, speed);
  EXPECT_EQ(ov_node_get_category(choice_clone), ov_category_decision);
  EXPECT_EQ(ov_node_get_number_of_states(speed_clone), 3);
  EXPECT_EQ(speed_clone->state_labels, speed->state_labels); // shared, not copied
  EXPECT_STREQ(ov_node_get_state_label(speed_clone, 2), "very_fast");
  EXPECT_EQ(ov_node_get_state_index_from_label(speed_clone, "fast"), 1);

  // A clone cannot be edited or deleted on its own.
  EXPECT_EQ(ov_node_set_state_label(speed_clone, 0, "x"), ov_error_usage);
  EXPECT_EQ(ov_node_set_subtype(speed_clone, ov_subtype_number), ov_error_usage);
  EXPECT_EQ(ov_node_delete(speed_clone), ov_error_usage);
  EXPECT_EQ(node_count(whole), 4u);

  // Automatic names join the instance's and the master's names.
  EXPECT_EQ(ov_node_set_name(instance, "engine"), ov_error_none);
  EXPECT_STREQ(ov_node_get_name(speed_clone), "engine_speed");
  EXPECT_EQ(ov_domain_get_node_by_name(as_domain(whole), "engine_speed"), speed_clone);
}

TEST_F(InstanceTest, ClonesFollowTheirMaster) {
  ov_class_t part = make_class("Part");
  ov_class_t whole = make_class("Whole");
  ov_node_t out = make_output(part, "out");
  ov_node_t first = ov_class_new_instance(whole, part);
  ov_node_t second = ov_class_new_instance(whole, part);
  ov_node_t c1 = ov_node_get_output(first, out);
  ov_node_t c2 = ov_node_get_output(second, out);

  // The label array is made after the clones: they take it over.
  ASSERT_EQ(out->state_labels, nullptr);
  EXPECT_EQ(ov_node_set_state_label(out, 0, "only"), ov_error_none);
  for (ov_node_t clone : {c1, c2}) {
    EXPECT_EQ(clone->state_labels, out->state_labels);
    EXPECT_STREQ(ov_node_get_state_label(clone, 0), "only");
  }
  EXPECT_EQ(ov_node_set_state_label(out, 0, "changed"), ov_error_none);
  EXPECT_STREQ(ov_node_get_state_label(c2, 0), "changed");

  // Subtype and values.
  EXPECT_EQ(ov_node_set_subtype(out, ov_subtype_interval), ov_error_none);
  EXPECT_EQ(ov_node_get_subtype(c1), ov_subtype_interval);
  EXPECT_EQ(ov_node_get_state_value(c1, 0), -DBL_MAX);
  EXPECT_EQ(ov_node_set_state_value(out, 0, -5.0), ov_error_none);
  EXPECT_EQ(ov_node_set_state_value(out, 1, 5.0), ov_error_none);
  for (ov_node_t clone : {c1, c2}) {
    EXPECT_EQ(clone->state_values, out->state_values);
    EXPECT_EQ(ov_node_get_state_value(clone, 0), -5.0);
    EXPECT_EQ(ov_node_get_state_value(clone, 1), 5.0);
    EXPECT_EQ(ov_node_get_state_index_from_value(clone, 0.0), 0);
  }
  // A new instance starts from the present state description.
  ov_node_t third = ov_class_new_instance(whole, part);
  ov_node_t c3 = ov_node_get_output(third, out);
  EXPECT_EQ(ov_node_get_subtype(c3), ov_subtype_interval);
  EXPECT_EQ(ov_node_get_state_value(c3, 1), 5.0);
  EXPECT_STREQ(ov_node_get_state_label(c3, 0), "changed");
}

// Clones of clones: an output of Inner is passed on as an output of Middle,
// whose instance in Outer has a clone of that clone.
TEST_F(InstanceTest, ClonesOfClonesFollowThroughNestedInstances) {
  ov_class_t inner = make_class("Inner");
  ov_class_t middle = make_class("Middle");
  ov_class_t outer = make_class("Outer");
  ov_node_t out = make_output(inner, "out");
  ov_node_t mid_instance = ov_class_new_instance(middle, inner);
  ov_node_t mid_clone = ov_node_get_output(mid_instance, out);
  ASSERT_EQ(ov_node_add_to_outputs(mid_clone), ov_error_none);
  ov_node_t outer_instance = ov_class_new_instance(outer, middle);
  ov_node_t outer_clone = ov_node_get_output(outer_instance, mid_clone);
  ASSERT_NE(outer_clone, nullptr);
  EXPECT_EQ(outer_clone->master, mid_clone);

  EXPECT_EQ(ov_node_set_state_label(out, 0, "deep"), ov_error_none);
  EXPECT_STREQ(ov_node_get_state_label(outer_clone, 0), "deep");
  EXPECT_EQ(ov_node_set_subtype(out, ov_subtype_number), ov_error_none);
  EXPECT_EQ(ov_node_set_state_value(out, 0, 7.5), ov_error_none);
  EXPECT_EQ(ov_node_get_subtype(outer_clone), ov_subtype_number);
  EXPECT_EQ(ov_node_get_state_value(outer_clone, 0), 7.5);

  // Deleting the inner output removes the clones all the way out.
  EXPECT_EQ(ov_node_delete(out), ov_error_none);
  EXPECT_EQ(node_count(middle), 1u);
  EXPECT_EQ(node_count(outer), 1u);
  EXPECT_TRUE(mid_instance->output_clones.empty());
  EXPECT_TRUE(outer_instance->output_clones.empty());
  EXPECT_EQ(entries(ov_class_get_outputs(middle)), (std::vector<ov_node_t>{}));
}

// Random hierarchies against a reference that keeps, per pair of classes,
// the number of instances and derives reachability by brute force.
TEST_F(InstanceTest, CycleTestAgreesWithReachability) {
  constexpr int n = 7;
  std::vector<ov_class_t> classes;
  for (int i = 0; i < n; ++i) classes.push_back(ov_cc_new_class(cc));
  int uses[n][n] = {}; // uses[x][y]: instances of y inside x
  std::vector<std::pair<int, ov_node_t>> made;
  auto reaches = [&](int from, int to) { // does `from` use `to`, through any depth?
    std::vector<bool> seen(n, false);
    std::vector<int> stack{from};
    while (!stack.empty()) {
      int x = stack.back();
      stack.pop_back();
      for (int y = 0; y < n; ++y)
        if (uses[x][y] > 0 && !seen[y]) {
          if (y == to) return true;
          seen[y] = true;
          stack.push_back(y);
        }
    }
    return false;
  };
  std::mt19937 random(12345);
  int refused = 0, accepted = 0;
  for (int step = 0; step < 400; ++step) {
    if (!made.empty() && random() % 4 == 0) {
      std::size_t k = random() % made.size();
      ov_node_t instance = made[k].second;
      int container =
          static_cast<int>(std::find(classes.begin(), classes.end(), as_class(instance->home)) - classes.begin());
      --uses[container][made[k].first];
      ASSERT_EQ(ov_node_delete(instance), ov_error_none);
      made.erase(made.begin() + static_cast<std::ptrdiff_t>(k));
      continue;
    }
    int x = static_cast<int>(random() % n), y = static_cast<int>(random() % n);
    bool cycle = x == y || reaches(y, x);
    ov_node_t instance = ov_class_new_instance(classes[x], classes[y]);
    if (cycle) {
      ++refused;
      EXPECT_EQ(instance, nullptr);
      EXPECT_EQ(ov_error_code(), ov_error_cyclic_instance_hierarchy);
    } else {
      ++accepted;
      ASSERT_NE(instance, nullptr);
      ++uses[x][y];
      made.emplace_back(y, instance);
    }
    for (ov_class_t cls : classes) ASSERT_EQ(as_domain(cls)->class_info.mark, 0u);
  }
  EXPECT_GT(refused, 20);
  EXPECT_GT(accepted, 20);
  // The lists of instances agree with the reference.
  for (int y = 0; y < n; ++y) {
    int expected = 0;
    for (int x = 0; x < n; ++x) expected += uses[x][y];
    EXPECT_EQ(static_cast<int>(entries(ov_class_get_instances(classes[y])).size()), expected);
  }
}

// Influence diagrams and continuous nodes don't mix: a continuous output
// cannot be cloned into a class with decisions, and the attempt leaves
// everything as it was.
TEST_F(InstanceTest, FailedCloneLeavesTheContainerAsItWas) {
  ov_class_t part = make_class("Part");
  ov_class_t plain_user = make_class("PlainUser");
  ov_class_t decider = make_class("Decider");
  make_output(part, "discrete_out");
  ov_node_t level = make_node(part, "level", ov_category_chance, ov_kind_continuous);
  ASSERT_EQ(ov_node_add_to_outputs(level), ov_error_none);
  make_node(decider, "d", ov_category_decision);

  EXPECT_EQ(ov_class_new_instance(decider, part), nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_cg_influence_diagrams_not_supported);
  EXPECT_EQ(node_count(decider), 1u);
  EXPECT_EQ(as_domain(decider)->instance_count, 0u);
  EXPECT_EQ(as_domain(decider)->discrete_count, 1u);
  EXPECT_EQ(entries(ov_class_get_instances(part)), (std::vector<ov_node_t>{}));
  ov_node_t ok = ov_class_new_instance(plain_user, part);
  ASSERT_NE(ok, nullptr);
  EXPECT_EQ(node_count(plain_user), 3u);
}

TEST_F(InstanceTest, NewOutputReachesEveryInstance) {
  ov_class_t part = make_class("Part");
  ov_class_t user1 = make_class("User1");
  ov_class_t user2 = make_class("User2");
  ov_node_t old_out = make_output(part, "old_out");
  ov_node_t i1 = ov_class_new_instance(user1, part);
  ov_node_t i2 = ov_class_new_instance(user2, part);
  ov_node_t i3 = ov_class_new_instance(user2, part);

  ov_node_t added = make_node(part, "added");
  EXPECT_EQ(ov_node_add_to_outputs(added), ov_error_none);
  EXPECT_EQ(node_count(user1), 3u);
  EXPECT_EQ(node_count(user2), 6u);
  for (ov_node_t instance : {i1, i2, i3}) {
    ASSERT_EQ(instance->output_clones.size(), 2u);
    EXPECT_EQ(instance->output_clones[0]->master, old_out);
    EXPECT_EQ(instance->output_clones[1]->master, added);
  }
  // Adding it again changes nothing.
  EXPECT_EQ(ov_node_add_to_outputs(added), ov_error_none);
  EXPECT_EQ(node_count(user2), 6u);
  EXPECT_EQ(entries(ov_class_get_outputs(part)), (std::vector<ov_node_t>{old_out, added}));

  // Removing the first output deletes its clones; the second moves up.
  EXPECT_EQ(ov_node_remove_from_outputs(old_out), ov_error_none);
  EXPECT_EQ(node_count(user2), 4u);
  for (ov_node_t instance : {i1, i2, i3}) {
    ASSERT_EQ(instance->output_clones.size(), 1u);
    EXPECT_EQ(ov_node_get_output(instance, added), instance->output_clones[0]);
  }
  EXPECT_EQ(ov_node_remove_from_outputs(old_out), ov_error_usage);
  EXPECT_EQ(node_count(part), 2u); // the node itself stays in its class
}

TEST_F(InstanceTest, FailedOutputAdditionIsUndone) {
  ov_class_t part = make_class("Part");
  ov_class_t plain_user = make_class("PlainUser");
  ov_class_t decider = make_class("Decider");
  make_node(decider, "d", ov_category_decision);
  ov_node_t i1 = ov_class_new_instance(plain_user, part); // first in the instance list
  ov_node_t i2 = ov_class_new_instance(decider, part);
  ASSERT_NE(i1, nullptr);
  ASSERT_NE(i2, nullptr);

  ov_node_t level = make_node(part, "level", ov_category_chance, ov_kind_continuous);
  EXPECT_EQ(ov_node_add_to_outputs(level), ov_error_cg_influence_diagrams_not_supported);
  EXPECT_EQ(entries(ov_class_get_outputs(part)), (std::vector<ov_node_t>{}));
  EXPECT_TRUE(i1->output_clones.empty()); // the clone made before the failure is gone
  EXPECT_TRUE(i2->output_clones.empty());
  EXPECT_EQ(node_count(plain_user), 1u);
  EXPECT_EQ(node_count(decider), 2u);
  EXPECT_EQ(as_domain(plain_user)->continuous_count, 0u);
}

TEST_F(InstanceTest, InterfaceMembershipRules) {
  ov_class_t cls = make_class("A");
  ov_node_t chance = make_node(cls, "chance");
  ov_node_t decision = make_node(cls, "decision", ov_category_decision);
  ov_node_t utility = make_node(cls, "utility", ov_category_utility);
  ov_node_t other = make_node(cls, "other");
  ov_class_t part = make_class("Part");
  ov_node_t part_out = make_output(part, "out");
  ov_node_t instance = ov_class_new_instance(cls, part);
  ov_node_t clone = ov_node_get_output(instance, part_out);

  EXPECT_EQ(ov_node_add_to_inputs(nullptr), ov_error_usage);
  EXPECT_EQ(ov_node_add_to_outputs(nullptr), ov_error_usage);
  EXPECT_EQ(ov_node_add_to_inputs(utility), ov_error_usage);
  EXPECT_EQ(ov_node_add_to_outputs(utility), ov_error_usage);
  EXPECT_EQ(ov_node_add_to_inputs(instance), ov_error_usage);
  EXPECT_EQ(ov_node_add_to_outputs(instance), ov_error_usage);
  EXPECT_EQ(ov_node_add_to_inputs(clone), ov_error_usage); // a clone has a master
  EXPECT_EQ(ov_node_add_to_outputs(clone), ov_error_none); // but can be passed on
  EXPECT_EQ(ov_node_add_to_inputs(other), ov_error_none);
  EXPECT_EQ(ov_node_add_to_inputs(decision), ov_error_none);
  EXPECT_EQ(ov_node_add_to_inputs(decision), ov_error_none);   // already one
  EXPECT_EQ(ov_node_add_to_outputs(decision), ov_error_usage); // inputs and outputs are disjoint
  EXPECT_EQ(ov_node_add_to_outputs(chance), ov_error_none);
  EXPECT_EQ(ov_node_add_to_inputs(chance), ov_error_usage);
  EXPECT_EQ(entries(ov_class_get_inputs(cls)), (std::vector<ov_node_t>{other, decision}));
  EXPECT_EQ(entries(ov_class_get_outputs(cls)), (std::vector<ov_node_t>{clone, chance}));

  EXPECT_EQ(ov_node_remove_from_inputs(chance), ov_error_usage);
  EXPECT_EQ(ov_node_remove_from_outputs(decision), ov_error_usage);
  EXPECT_EQ(ov_node_remove_from_inputs(nullptr), ov_error_usage);
  EXPECT_EQ(ov_node_remove_from_outputs(nullptr), ov_error_usage);

  // Nodes of a plain domain have no class.
  ov_domain_t plain = ov_new_domain();
  ov_node_t loose = ov_domain_new_node(plain, ov_category_chance, ov_kind_discrete);
  EXPECT_EQ(ov_node_add_to_inputs(loose), ov_error_usage);
  EXPECT_EQ(ov_node_add_to_outputs(loose), ov_error_usage);
  EXPECT_EQ(ov_node_remove_from_inputs(loose), ov_error_usage);
  EXPECT_EQ(ov_domain_delete(plain), ov_error_none);
}

TEST_F(InstanceTest, DeletingAnInstanceReleasesItsClones) {
  ov_class_t part = make_class("Part");
  ov_class_t sink = make_class("Sink");
  ov_class_t whole = make_class("Whole");
  ov_node_t out = make_output(part, "out");
  ov_node_t in = make_input(sink, "in");
  ov_node_t source = ov_class_new_instance(whole, part);
  ov_node_t user = ov_class_new_instance(whole, sink);
  ov_node_t clone = ov_node_get_output(source, out);
  ASSERT_EQ(ov_node_set_input(user, in, clone), ov_error_none);
  EXPECT_EQ(ov_node_get_input(user, in), clone);

  EXPECT_EQ(ov_node_delete(source), ov_error_none);
  EXPECT_EQ(ov_node_get_input(user, in), nullptr); // the binding to the clone is cleared
  EXPECT_EQ(ov_error_code(), ov_error_none);
  EXPECT_EQ(node_count(whole), 1u);
  EXPECT_EQ(entries(ov_class_get_instances(part)), (std::vector<ov_node_t>{}));
  EXPECT_EQ(entries(ov_class_get_instances(sink)), (std::vector<ov_node_t>{user}));
  // Numbers stay dense.
  EXPECT_EQ(user->number, 1u);
}

} // namespace
} // namespace orvel::test
