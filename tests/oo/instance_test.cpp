// Instances and their output clones, the instance hierarchy, the interface
// of a class, and graph edits around interface nodes and clones.
#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <random>

#include "expr/model.h"
#include "oo/oo_fixture.h"

namespace orvel::test {
namespace {

using InstanceTest = OoTest;

TEST_F(InstanceTest, OutputClonesStandForTheOutputs) {
  ov_class_t part = make_class("Part"), whole = make_class("Whole");
  ov_node_t in = make_input(part, "in");
  make_node(part, "hidden");
  ov_node_t speed = make_output(part, "speed", {"slow", "fast", "very_fast"});
  ov_node_t choice = make_node(part, "choice", ov_category_decision);
  ASSERT_EQ(ov_node_add_to_outputs(choice), ov_error_none);
  make_node(whole, "existing");

  ov_node_t instance = ov_class_new_instance(whole, part);
  ASSERT_NE(instance, nullptr);
  EXPECT_EQ(ov_node_get_category(instance), ov_category_instance);
  EXPECT_EQ(ov_node_get_kind(instance), ov_kind_discrete);
  EXPECT_EQ(ov_node_get_instance_class(instance), part);
  EXPECT_EQ(ov_node_get_number_of_states(instance), -1);
  EXPECT_STREQ(ov_node_get_name(instance), "I2");
  EXPECT_EQ(node_count(whole), 4u);
  EXPECT_EQ(ov_node_get_output(instance, in), nullptr);
  ov_node_t speed_clone = ov_node_get_output(instance, speed), choice_clone = ov_node_get_output(instance, choice);
  EXPECT_EQ(entries(instance->output_clones.data()), (std::vector<ov_node_t>{speed_clone, choice_clone}))
      << "in output order";
  for (ov_node_t clone : {speed_clone, choice_clone}) {
    EXPECT_EQ(ov_node_get_home_class(clone), whole);
    EXPECT_EQ(ov_node_get_instance(clone), instance);
    EXPECT_EQ(ov_node_get_domain(clone), nullptr) << "a class is no domain";
  }
  EXPECT_EQ(ov_node_get_master(speed_clone), speed);
  EXPECT_EQ(ov_node_get_category(choice_clone), ov_category_decision);
  EXPECT_EQ(ov_node_get_number_of_states(speed_clone), 3);
  EXPECT_STREQ(ov_node_get_state_label(speed_clone, 2), "very_fast");
  EXPECT_EQ(ov_node_get_state_index_from_label(speed_clone, "fast"), 1);
  EXPECT_EQ(ov_class_get_first_node(whole), choice_clone) << "the newest node";
  // Automatic names join the instance's and the master's names.
  EXPECT_EQ(ov_node_set_name(instance, "engine"), ov_error_none);
  EXPECT_STREQ(ov_node_get_name(speed_clone), "engine_speed");
  EXPECT_EQ(ov_class_get_node_by_name(whole, "engine_speed"), speed_clone);
  // When the joined name is taken a clone falls back to the numbered pattern.
  make_node(whole, "second_speed");
  ov_node_t second = ov_class_new_instance(whole, part);
  ASSERT_EQ(ov_node_set_name(second, "second"), ov_error_none);
  EXPECT_STREQ(ov_node_get_name(ov_node_get_output(second, speed)), "C7") << "the seventh node";
}

TEST_F(InstanceTest, ClonesFollowTheirMasterAtEveryDepth) {
  // An output of Inner is passed on as an output of Middle, whose instance
  // in Outer has a clone of that clone, read by a node.
  ov_class_t inner = make_class("Inner"), middle = make_class("Middle"), outer = make_class("Outer");
  ov_node_t out = make_output(inner, "out"), mid_instance = ov_class_new_instance(middle, inner);
  ov_node_t second = ov_node_get_output(ov_class_new_instance(middle, inner), out);
  ov_node_t mid_clone = ov_node_get_output(mid_instance, out);
  ASSERT_EQ(ov_node_add_to_outputs(mid_clone), ov_error_none);
  ov_node_t outer_instance = ov_class_new_instance(outer, middle);
  ov_node_t outer_clone = ov_node_get_output(outer_instance, mid_clone);
  EXPECT_EQ(ov_node_get_master(outer_clone), mid_clone);
  ov_node_t reader = make_node(outer, "reader");
  ASSERT_EQ(ov_node_set_number_of_states(reader, 2), ov_error_none);
  ASSERT_EQ(ov_node_add_parent(reader, outer_clone), ov_error_none);
  ov_table_t table = ov_node_get_table(reader);
  ov_model_t model = ov_node_new_model(reader, nullptr);
  model->table_is_stale = 0;

  // The label array is made after the clones: they take it over.
  ASSERT_EQ(ov_node_set_state_label(out, 0, "only"), ov_error_none);
  ASSERT_EQ(ov_node_set_state_label(out, 0, "changed"), ov_error_none);
  EXPECT_EQ(model->table_is_stale, 1) << "the change reaches the model of a child of a clone";
  ASSERT_EQ(ov_node_set_number_of_states(out, 4), ov_error_none);
  ASSERT_EQ(ov_node_set_subtype(out, ov_subtype_interval), ov_error_none);
  ASSERT_EQ(ov_node_set_state_value(out, 0, -5.0), ov_error_none);
  ASSERT_EQ(ov_node_set_state_value(out, 1, 5.0), ov_error_none);
  for (ov_node_t clone : {mid_clone, second, outer_clone}) {
    EXPECT_STREQ(ov_node_get_state_label(clone, 0), "changed");
    EXPECT_EQ(ov_node_get_number_of_states(clone), 4);
    EXPECT_EQ(ov_node_get_subtype(clone), ov_subtype_interval);
    EXPECT_EQ(ov_node_get_state_value(clone, 1), 5.0);
  }
  EXPECT_EQ(ov_table_get_size(table), 8) << "the reader's table follows the clone";
  // A new instance starts from the present state description.
  ov_node_t third = ov_node_get_output(ov_class_new_instance(middle, inner), out);
  EXPECT_EQ(ov_node_get_number_of_states(third), 4);
  EXPECT_EQ(ov_node_get_state_value(third, 1), 5.0);
  EXPECT_STREQ(ov_node_get_state_label(third, 0), "changed");
  // Deleting the inner output removes the clones all the way out, and the
  // reader's table narrows.
  EXPECT_EQ(ov_node_delete(out), ov_error_none);
  EXPECT_EQ(node_count(middle), 3u);
  EXPECT_EQ(node_count(outer), 2u);
  EXPECT_TRUE(outer_instance->output_clones.empty());
  EXPECT_EQ(entries(ov_class_get_outputs(middle)), (std::vector<ov_node_t>{}));
  EXPECT_EQ(entries(ov_class_get_outputs(inner)), (std::vector<ov_node_t>{}));
  EXPECT_EQ(entries(ov_node_get_parents(reader)), (std::vector<ov_node_t>{}));
  EXPECT_EQ(ov_table_get_size(table), 2);
}

// Random hierarchies against a reference that keeps, per pair of classes,
// the number of instances and derives reachability by brute force.
TEST_F(InstanceTest, CycleTestAgreesWithReachability) {
  constexpr int n = 7;
  std::vector<ov_class_t> classes;
  for (int i = 0; i < n; ++i) classes.push_back(ov_cc_new_class(cc));
  int uses[n][n] = {}; // uses[x][y]: instances of y inside x
  std::vector<std::pair<int, ov_node_t>> made;
  auto reaches = [&](int from, int to) {
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
      auto container = std::find(classes.begin(), classes.end(), ov_node_get_home_class(instance)) - classes.begin();
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
  for (int y = 0; y < n; ++y) {
    int expected = 0;
    for (int x = 0; x < n; ++x) expected += uses[x][y];
    EXPECT_EQ(static_cast<int>(entries(ov_class_get_instances(classes[y])).size()), expected);
  }
}

TEST_F(InstanceTest, OutputsComeAndGoInEveryInstance) {
  ov_class_t part = make_class("Part"), user1 = make_class("User1"), user2 = make_class("User2");
  ov_node_t old_out = make_output(part, "old_out");
  std::vector<ov_node_t> instances = {ov_class_new_instance(user1, part), ov_class_new_instance(user2, part),
                                      ov_class_new_instance(user2, part)};
  ov_node_t added = make_node(part, "added");
  EXPECT_EQ(ov_node_add_to_outputs(added), ov_error_none);
  EXPECT_EQ(ov_node_add_to_outputs(added), ov_error_none) << "again: nothing changes";
  EXPECT_EQ(node_count(user2), 6u);
  for (ov_node_t instance : instances) {
    ASSERT_EQ(instance->output_clones.size(), 2u);
    EXPECT_EQ(ov_node_get_output(instance, old_out), instance->output_clones[0]);
    EXPECT_EQ(ov_node_get_output(instance, added), instance->output_clones[1]);
  }
  EXPECT_EQ(entries(ov_class_get_outputs(part)), (std::vector<ov_node_t>{old_out, added}));
  // Removing the first output deletes its clones; the second moves up.
  EXPECT_EQ(ov_node_remove_from_outputs(old_out), ov_error_none);
  EXPECT_EQ(node_count(user2), 4u);
  for (ov_node_t instance : instances)
    EXPECT_EQ(entries(instance->output_clones.data()), std::vector<ov_node_t>{ov_node_get_output(instance, added)});
  EXPECT_EQ(node_count(part), 2u) << "the node itself stays in its class";
}

TEST_F(InstanceTest, InterfaceMembership) {
  ov_class_t cls = make_class("A"), part = make_class("Part");
  ov_node_t chance = make_node(cls, "chance"), decision = make_node(cls, "decision", ov_category_decision);
  ov_node_t other = make_node(cls, "other"), child = make_node(cls, "child");
  ov_node_t clone = ov_node_get_output(ov_class_new_instance(cls, part), make_output(part, "out"));
  EXPECT_EQ(ov_node_add_to_outputs(clone), ov_error_none) << "a clone can be passed on";
  EXPECT_EQ(ov_node_add_to_inputs(other), ov_error_none);
  EXPECT_EQ(ov_node_add_to_inputs(decision), ov_error_none);
  EXPECT_EQ(ov_node_add_to_inputs(decision), ov_error_none) << "already one";
  EXPECT_EQ(ov_node_add_to_outputs(chance), ov_error_none);
  EXPECT_EQ(entries(ov_class_get_inputs(cls)), (std::vector<ov_node_t>{other, decision}));
  EXPECT_EQ(entries(ov_class_get_outputs(cls)), (std::vector<ov_node_t>{clone, chance}));
  // An input refuses parents but can be one; out of the inputs it takes them.
  EXPECT_EQ(ov_node_add_parent(other, chance), ov_error_usage);
  EXPECT_EQ(ov_node_add_parent(child, other), ov_error_none);
  EXPECT_EQ(ov_node_add_parent(child, clone), ov_error_none);
  EXPECT_EQ(ov_node_remove_from_inputs(other), ov_error_none);
  EXPECT_EQ(ov_node_add_parent(other, chance), ov_error_none);
  EXPECT_EQ(entries(ov_class_get_inputs(cls)), (std::vector<ov_node_t>{decision}));
}

TEST_F(InstanceTest, DeletingAnInstanceReleasesItsClonesAndBindings) {
  ov_class_t part = make_class("Part"), sink = make_class("Sink"), whole = make_class("Whole");
  ov_node_t out = make_output(part, "out"), in = make_input(sink, "in"), source = ov_class_new_instance(whole, part);
  ov_node_t user = ov_class_new_instance(whole, sink);
  ASSERT_EQ(ov_node_set_input(user, in, ov_node_get_output(source, out)), ov_error_none);
  EXPECT_EQ(ov_class_delete(part), ov_error_usage);
  EXPECT_EQ(ov_node_delete(source), ov_error_none);
  EXPECT_EQ(ov_node_get_input(user, in), nullptr) << "the binding to the clone is cleared";
  EXPECT_EQ(ov_error_code(), ov_error_none);
  EXPECT_EQ(node_count(whole), 1u);
  EXPECT_EQ(entries(ov_class_get_instances(part)), (std::vector<ov_node_t>{}));
  EXPECT_EQ(entries(ov_class_get_instances(sink)), (std::vector<ov_node_t>{user}));
  EXPECT_EQ(ov_class_delete(part), ov_error_none);
  EXPECT_EQ(entries(ov_cc_get_members(cc)), (std::vector<ov_class_t>{sink, whole}));
}

} // namespace
} // namespace orvel::test
