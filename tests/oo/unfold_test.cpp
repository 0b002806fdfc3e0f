// Unfolding a class into a domain: random hierarchies against the flat
// network they stand for, built independently; refusals.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <random>
#include <string>

#include "oo/oo_fixture.h"

namespace orvel::test {
namespace {

using UnfoldTest = OoTest;

// A node of a class: its own node (instance < 0) or output `index` of one
// of the class's instances.
struct Ref {
  int instance = -1;
  int index = 0;
};

struct NodePlan {
  int states = 2;
  std::vector<Ref> parents;
  std::vector<float> table;
};

struct InstancePlan {
  int cls = 0;
  std::vector<std::optional<Ref>> bindings; // one per input of its class
};

// Inputs are nodes 0 .. inputs-1; then come the instances, then the other
// nodes, whose parents are earlier nodes or instance outputs.
struct ClassPlan {
  int inputs = 0;
  std::vector<NodePlan> nodes;
  std::vector<InstancePlan> instances;
  std::vector<int> outputs;
};

std::vector<ClassPlan> random_hierarchy(std::mt19937 &random) {
  auto pick = [&](int n) { return static_cast<int>(random() % static_cast<unsigned>(n)); };
  auto table = [&](std::size_t size) {
    std::vector<float> values(size);
    for (float &v : values) v = 0.05f + static_cast<float>(random() % 1000) / 1000.0f;
    return values;
  };
  // Classes by level: 0 is the top, level 3 instantiates nothing.
  std::vector<std::vector<int>> levels(4);
  std::vector<ClassPlan> classes;
  for (int level = 3; level >= 0; --level) {
    const int count = level == 0 ? 1 : 1 + pick(2);
    for (int c = 0; c < count; ++c) {
      ClassPlan plan;
      plan.inputs = level == 0 ? 0 : 1 + pick(2);
      // The states of a node and the refs that can feed it, in order.
      std::vector<std::pair<Ref, int>> available;
      for (int i = 0; i < plan.inputs; ++i) {
        // Unbound inputs keep a table of their own.
        const int states = 2 + pick(2);
        plan.nodes.push_back({states, {}, table(static_cast<std::size_t>(states))});
        available.push_back({Ref{-1, i}, plan.nodes.back().states});
      }
      const int instance_count = level == 3 ? 0 : 1 + pick(3);
      for (int k = 0; k < instance_count; ++k) {
        const auto &choices = levels[level + 1];
        InstancePlan instance{choices[pick(static_cast<int>(choices.size()))], {}};
        const ClassPlan &inner = classes[instance.cls];
        for (int i = 0; i < inner.inputs; ++i) {
          // Each node is bound at most once, so that no child gets one
          // parent twice through bindings.
          std::vector<std::size_t> fitting;
          for (std::size_t a = 0; a < available.size(); ++a)
            if (available[a].second == inner.nodes[i].states) fitting.push_back(a);
          if (!fitting.empty() && pick(10) < 7) {
            const std::size_t a = fitting[static_cast<std::size_t>(pick(static_cast<int>(fitting.size())))];
            instance.bindings.push_back(available[a].first);
            available[a].second = 0;
          } else {
            instance.bindings.push_back(std::nullopt);
          }
        }
        for (int o = 0; o < static_cast<int>(inner.outputs.size()); ++o)
          available.push_back({Ref{k, o}, inner.nodes[inner.outputs[o]].states});
        plan.instances.push_back(instance);
      }
      const int plain = 2 + pick(3);
      for (int i = 0; i < plain; ++i) {
        NodePlan node{2 + pick(2), {}, {}};
        std::size_t size = node.states;
        for (auto &[ref, states] : available)
          if (states > 0 && node.parents.size() < 3 && pick(10) < 3) {
            node.parents.push_back(ref);
            size *= static_cast<std::size_t>(states);
          }
        node.table = table(size);
        available.push_back({Ref{-1, static_cast<int>(plan.nodes.size())}, node.states});
        plan.nodes.push_back(node);
      }
      for (int i = plan.inputs; i < static_cast<int>(plan.nodes.size()); ++i)
        if (pick(2) == 0 || i + 1 == static_cast<int>(plan.nodes.size())) plan.outputs.push_back(i);
      levels[level].push_back(static_cast<int>(classes.size()));
      classes.push_back(plan);
    }
  }
  return classes;
}

std::string node_name(int i) { return "n" + std::to_string(i); }
std::string instance_name(int k) { return "I" + std::to_string(k); }

ov_node_t named_node(ov_class_t cls, const std::string &name) {
  ov_node_t node = ov_domain_new_node(as_domain(cls), ov_category_chance, ov_kind_discrete);
  EXPECT_EQ(ov_node_set_name(node, name.c_str()), ov_error_none);
  return node;
}

void fill_table(ov_node_t node, const std::vector<float> &values) {
  ov_table_t table = ov_node_get_table(node);
  ASSERT_EQ(ov_table_get_size(table), values.size());
  std::copy(values.begin(), values.end(), ov_table_get_data(table));
}

// Builds a class through the interface; the classes it instantiates exist.
void build_class(const ClassPlan &plan, ov_class_t cls, const std::vector<ov_class_t> &made) {
  std::vector<ov_node_t> nodes, instances;
  auto resolve = [&](Ref ref) {
    if (ref.instance < 0) return nodes[static_cast<std::size_t>(ref.index)];
    ov_class_t inner = made[static_cast<std::size_t>(plan.instances[ref.instance].cls)];
    return ov_node_get_output(instances[static_cast<std::size_t>(ref.instance)],
                              ov_class_get_outputs(inner)[ref.index]);
  };
  for (int i = 0; i < plan.inputs; ++i) {
    ov_node_t node = named_node(cls, node_name(i));
    ASSERT_EQ(ov_node_add_to_inputs(node), ov_error_none);
    ASSERT_EQ(ov_node_set_number_of_states(node, plan.nodes[i].states), ov_error_none);
    fill_table(node, plan.nodes[i].table);
    nodes.push_back(node);
  }
  for (std::size_t k = 0; k < plan.instances.size(); ++k) {
    ov_class_t inner = made[static_cast<std::size_t>(plan.instances[k].cls)];
    ov_node_t instance = ov_class_new_instance(cls, inner);
    ASSERT_NE(instance, nullptr);
    ASSERT_EQ(ov_node_set_name(instance, instance_name(static_cast<int>(k)).c_str()), ov_error_none);
    instances.push_back(instance);
    for (std::size_t i = 0; i < plan.instances[k].bindings.size(); ++i) {
      if (plan.instances[k].bindings[i]) {
        ASSERT_EQ(ov_node_set_input(instance, ov_class_get_inputs(inner)[i], resolve(*plan.instances[k].bindings[i])),
                  ov_error_none);
      }
    }
  }
  for (std::size_t i = static_cast<std::size_t>(plan.inputs); i < plan.nodes.size(); ++i) {
    ov_node_t node = named_node(cls, node_name(static_cast<int>(i)));
    ASSERT_EQ(ov_node_set_number_of_states(node, plan.nodes[i].states), ov_error_none);
    for (Ref ref : plan.nodes[i].parents) ASSERT_EQ(ov_node_add_parent(node, resolve(ref)), ov_error_none);
    fill_table(node, plan.nodes[i].table);
    nodes.push_back(node);
  }
  for (int o : plan.outputs) ASSERT_EQ(ov_node_add_to_outputs(nodes[static_cast<std::size_t>(o)]), ov_error_none);
}

// The flat network of a class, built without classes: one node per node of
// each instance, named in `keys` by its path; a bound input is the node
// bound to it. Returns the nodes standing for the outputs.
std::vector<ov_node_t> flatten(const std::vector<ClassPlan> &plans, int c, const std::string &path,
                               const std::vector<ov_node_t> &bound, ov_domain_t flat,
                               std::map<ov_node_t, std::string> &keys) {
  const ClassPlan &plan = plans[static_cast<std::size_t>(c)];
  std::vector<ov_node_t> nodes;
  std::vector<std::vector<ov_node_t>> outputs;
  auto resolve = [&](Ref ref) {
    return ref.instance < 0 ? nodes[static_cast<std::size_t>(ref.index)]
                            : outputs[static_cast<std::size_t>(ref.instance)][static_cast<std::size_t>(ref.index)];
  };
  auto make = [&](std::size_t i) {
    ov_node_t node = ov_domain_new_node(flat, ov_category_chance, ov_kind_discrete);
    EXPECT_EQ(ov_node_set_number_of_states(node, plan.nodes[i].states), ov_error_none);
    keys[node] = path + node_name(static_cast<int>(i));
    return node;
  };
  for (std::size_t i = 0; i < static_cast<std::size_t>(plan.inputs); ++i) {
    if (bound[i] != nullptr) {
      nodes.push_back(bound[i]);
    } else {
      nodes.push_back(make(i));
      fill_table(nodes.back(), plan.nodes[i].table);
    }
  }
  for (std::size_t k = 0; k < plan.instances.size(); ++k) {
    std::vector<ov_node_t> actual;
    for (const auto &binding : plan.instances[k].bindings) actual.push_back(binding ? resolve(*binding) : nullptr);
    outputs.push_back(
        flatten(plans, plan.instances[k].cls, path + instance_name(static_cast<int>(k)) + "/", actual, flat, keys));
  }
  for (std::size_t i = static_cast<std::size_t>(plan.inputs); i < plan.nodes.size(); ++i) {
    ov_node_t node = make(i);
    for (Ref ref : plan.nodes[i].parents) EXPECT_EQ(ov_node_add_parent(node, resolve(ref)), ov_error_none);
    fill_table(node, plan.nodes[i].table);
    nodes.push_back(node);
  }
  std::vector<ov_node_t> result;
  for (int o : plan.outputs) result.push_back(nodes[static_cast<std::size_t>(o)]);
  return result;
}

// The path of an unfolded node: the names of its source entries.
std::string source_key(ov_node_t node) {
  std::string key;
  ov_node_t *source = ov_node_get_source(node);
  EXPECT_NE(source, nullptr);
  for (; source != nullptr && *source != nullptr; ++source)
    key += std::string(ov_node_get_name(*source)) + (source[1] ? "/" : "");
  return key;
}

std::vector<ov_node_t> domain_nodes(ov_domain_t domain) {
  std::vector<ov_node_t> out;
  for (ov_node_t node = ov_domain_get_first_node(domain); node != nullptr; node = ov_node_get_next(node))
    out.push_back(node);
  return out;
}

TEST_F(UnfoldTest, RandomHierarchiesEqualTheirFlatNetworks) {
  for (unsigned seed = 1; seed <= 12; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    std::vector<ClassPlan> plans = random_hierarchy(random);
    std::vector<ov_class_t> made;
    for (std::size_t c = 0; c < plans.size(); ++c) {
      made.push_back(make_class(("C" + std::to_string(seed) + "_" + std::to_string(c)).c_str()));
      build_class(plans[c], made.back(), made);
      if (HasFatalFailure()) return;
    }
    ov_class_t top = made.back();
    const std::uint32_t class_nodes = node_count(top);

    ov_domain_t unfolded = ov_class_create_domain(top);
    ASSERT_NE(unfolded, nullptr) << ov_error_name(ov_error_code());
    EXPECT_EQ(node_count(top), class_nodes);
    ov_domain_t flat = ov_new_domain();
    std::map<ov_node_t, std::string> flat_keys;
    flatten(plans, static_cast<int>(plans.size()) - 1, "", {}, flat, flat_keys);

    // The same nodes, by path, with the same parents in the same order.
    std::map<std::string, ov_node_t> by_key;
    std::map<ov_node_t, std::string> unfolded_keys;
    for (ov_node_t node : domain_nodes(unfolded)) {
      unfolded_keys[node] = source_key(node);
      by_key[unfolded_keys[node]] = node;
    }
    ASSERT_EQ(by_key.size(), flat_keys.size());
    for (auto &[node, key] : flat_keys) {
      ASSERT_TRUE(by_key.count(key)) << key;
      std::vector<std::string> expected, got;
      for (ov_node_t parent : entries(ov_node_get_parents(node))) expected.push_back(flat_keys[parent]);
      for (ov_node_t parent : entries(ov_node_get_parents(by_key[key]))) got.push_back(unfolded_keys[parent]);
      EXPECT_EQ(got, expected) << key;
    }

    ASSERT_EQ(ov_domain_compile(unfolded), ov_error_none);
    ASSERT_EQ(ov_domain_compile(flat), ov_error_none);
    for (int round = 0; round < 4; ++round) {
      for (auto &[node, key] : flat_keys)
        if (random() % 5 == 0) {
          const ov_index_t state = random() % ov_node_get_number_of_states(node);
          ASSERT_EQ(ov_node_select_state(node, state), ov_error_none);
          ASSERT_EQ(ov_node_select_state(by_key[key], state), ov_error_none);
        }
      ASSERT_EQ(ov_domain_propagate(flat, ov_equilibrium_sum, ov_mode_normal), ov_error_none);
      ASSERT_EQ(ov_domain_propagate(unfolded, ov_equilibrium_sum, ov_mode_normal), ov_error_none);
      for (auto &[node, key] : flat_keys)
        for (ov_count_t s = 0; s < ov_node_get_number_of_states(node); ++s)
          EXPECT_NEAR(ov_node_get_belief(node, s), ov_node_get_belief(by_key[key], s), 1e-6) << key;
    }
    EXPECT_EQ(ov_domain_delete(unfolded), ov_error_none);
    EXPECT_EQ(ov_domain_delete(flat), ov_error_none);
  }
}

TEST_F(UnfoldTest, RefusalsLeaveTheClassAsItWas) {
  ov_class_t part = make_class("Part"), whole = make_class("Whole"), outer = make_class("Outer");
  ov_node_t skill = make_input(part, "Skill");
  ASSERT_EQ(ov_node_set_number_of_states(skill, 2), ov_error_none);
  ASSERT_EQ(ov_node_set_state_label(skill, 0, "low"), ov_error_none);
  ASSERT_EQ(ov_node_set_state_label(skill, 1, "high"), ov_error_none);
  ov_node_t result = make_output(part, "Result", {"bad", "good"});
  ASSERT_EQ(ov_node_add_parent(result, skill), ov_error_none);
  ASSERT_EQ(ov_node_set_attribute(result, "unit", "cars"), ov_error_none);

  ASSERT_NE(ov_class_new_instance(outer, whole), nullptr);

  // A binding to a node with other state labels.
  ov_node_t training = make_node(whole, "Training");
  ASSERT_EQ(ov_node_set_number_of_states(training, 2), ov_error_none);
  ASSERT_EQ(ov_node_set_state_label(training, 0, "none"), ov_error_none);
  ASSERT_EQ(ov_node_set_state_label(training, 1, "full"), ov_error_none);
  ov_node_t instance = ov_class_new_instance(whole, part);
  ASSERT_EQ(ov_node_set_name(instance, "P"), ov_error_none);
  ASSERT_EQ(ov_node_set_name(ov_class_get_instances(whole)[0], "W"), ov_error_none);
  ASSERT_EQ(ov_node_set_input(instance, skill, training), ov_error_none);
  auto counts = [&] { return std::vector<std::uint32_t>{node_count(part), node_count(whole), node_count(outer)}; };
  const std::vector<std::uint32_t> before = counts();
  for (ov_class_t cls : {whole, outer}) {
    EXPECT_EQ(ov_class_create_domain(cls), nullptr);
    EXPECT_EQ(ov_error_code(), ov_error_illegal_binding);
  }
  EXPECT_EQ(counts(), before);
  EXPECT_EQ(ov_node_get_input(instance, skill), training);
  EXPECT_EQ(entries(ov_node_get_parents(result)), std::vector<ov_node_t>{skill});

  // With matching labels it unfolds: Training feeds Result.
  ASSERT_EQ(ov_node_set_state_label(training, 0, "low"), ov_error_none);
  ASSERT_EQ(ov_node_set_state_label(training, 1, "high"), ov_error_none);
  ov_domain_t domain = ov_class_create_domain(outer);
  ASSERT_NE(domain, nullptr);
  EXPECT_EQ(ov_domain_get_node_by_name(domain, "Training"), nullptr); // no names carried over
  std::vector<ov_node_t> nodes = domain_nodes(domain);
  ASSERT_EQ(nodes.size(), 2u);
  EXPECT_EQ(source_key(nodes[0]), "W/P/Result");
  EXPECT_EQ(source_key(nodes[1]), "W/Training");
  EXPECT_EQ(entries(ov_node_get_parents(nodes[0])), std::vector<ov_node_t>{nodes[1]});
  EXPECT_STREQ(ov_node_get_attribute(nodes[0], "unit"), "cars");
  EXPECT_STREQ(ov_node_get_state_label(nodes[1], 1), "high");
  EXPECT_EQ(ov_domain_delete(domain), ov_error_none);

  // Bindings that close a cycle, or give a child one parent twice.
  ov_class_t pair = make_class("Pair"), user = make_class("User");
  ov_node_t x1 = make_input(pair, "X1"), x2 = make_input(pair, "X2");
  ov_node_t y = make_output(pair, "Y");
  ASSERT_EQ(ov_node_add_parent(y, x1), ov_error_none);
  ASSERT_EQ(ov_node_add_parent(y, x2), ov_error_none);
  ov_node_t use = ov_class_new_instance(user, pair);
  ov_node_t z = make_node(user, "Z");
  ASSERT_EQ(ov_node_add_parent(z, ov_node_get_output(use, y)), ov_error_none);
  ASSERT_EQ(ov_node_set_input(use, x1, z), ov_error_none);
  const std::uint32_t user_count = node_count(user);
  EXPECT_EQ(ov_class_create_domain(user), nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_cyclic_network);
  ov_node_t w = make_node(user, "W");
  ASSERT_EQ(ov_node_set_input(use, x1, w), ov_error_none);
  ASSERT_EQ(ov_node_set_input(use, x2, w), ov_error_none);
  EXPECT_EQ(ov_class_create_domain(user), nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_illegal_binding);
  EXPECT_EQ(node_count(user), user_count + 1);
  EXPECT_EQ(entries(ov_node_get_parents(y)).size(), 2u);

  // Classes are deleted through their collection only.
  EXPECT_EQ(ov_domain_delete(as_domain(part)), ov_error_usage);
}

// A model is copied, and its parent input is replaced by the node bound to
// it: the unfolded table is Binomial (2, A / 2) over A's states 0, 1, 2.
TEST_F(UnfoldTest, ModelsFollowTheirBoundInputs) {
  auto numbered = [](ov_node_t node) {
    ASSERT_EQ(ov_node_set_number_of_states(node, 3), ov_error_none);
    ASSERT_EQ(ov_node_set_subtype(node, ov_subtype_number), ov_error_none);
    for (int i = 0; i < 3; ++i) ASSERT_EQ(ov_node_set_state_value(node, i, i), ov_error_none);
  };
  ov_class_t part = make_class("Part"), whole = make_class("Whole");
  ov_node_t k = make_input(part, "K");
  numbered(k);
  ov_node_t r = make_output(part, "R");
  numbered(r);
  ASSERT_EQ(ov_node_add_parent(r, k), ov_error_none);
  ov_node_t none[] = {nullptr};
  ov_model_t model = ov_node_new_model(r, none);
  ASSERT_EQ(
      ov_model_set_expression(model, 0, ov_class_string_to_expression(part, "Binomial (2, K / 2)", nullptr, nullptr)),
      ov_error_none);
  ov_node_t a = make_node(whole, "A");
  numbered(a);
  ov_node_t instance = ov_class_new_instance(whole, part);
  ASSERT_EQ(ov_node_set_input(instance, k, a), ov_error_none);

  ov_domain_t domain = ov_class_create_domain(whole);
  ASSERT_NE(domain, nullptr);
  std::vector<ov_node_t> nodes = domain_nodes(domain);
  ASSERT_EQ(nodes.size(), 2u);
  EXPECT_EQ(source_key(nodes[1]), "A");
  ASSERT_EQ(ov_domain_generate_tables(domain), ov_error_none);
  const ov_number_t *data = ov_table_get_data(ov_node_get_table(nodes[0]));
  EXPECT_EQ(std::vector<float>(data, data + 9), (std::vector<float>{1, 0, 0, 0.25f, 0.5f, 0.25f, 0, 0, 1}));
  EXPECT_EQ(ov_domain_delete(domain), ov_error_none);
}

// A class file whose instance names a class that the loader does not
// supply: the loader does nothing, reads a file with another class, or reads
// a broken file. Each time the parse fails with parse and the first message
// names the class; the collection keeps only the class it had.
TEST_F(UnfoldTest, LoaderThatFailsOrLoadsAnotherClass) {
  auto file = [](const std::string &name, const std::string &text) {
    const std::string path = (std::filesystem::temp_directory_path() / ("orvel_unfold_" + name + ".net")).string();
    std::ofstream(path) << text;
    return path;
  };
  const std::string outer = file("Outer", "class Outer {\n node s { states = (\"a\" \"b\"); }\n"
                                          " instance m : Inner (i = s) {}\n}\n");
  struct Case {
    std::string loaded; // the file the loader reads, or none
    std::vector<std::string> messages;
  };
  Case cases[] = {{"", {}},
                  {file("Other", "class Other { node x { states = (\"a\" \"b\"); } }\n"), {}},
                  {file("Broken", "class Inner { node i { states = (\"a\" \"b\") }\n"), {}}};
  ov_class_t keep = make_class("Keep");
  make_node(keep, "K");
  for (Case &c : cases) {
    SCOPED_TRACE(c.loaded);
    auto loader = [](ov_string_t, ov_class_collection_t collection, void *data) {
      const Case *c = static_cast<const Case *>(data);
      if (!c->loaded.empty()) ov_net_parse_classes(c->loaded.c_str(), collection, nullptr, nullptr, nullptr);
    };
    auto handler = [](std::uint32_t, ov_string_t message, void *data) {
      static_cast<Case *>(data)->messages.emplace_back(message);
    };
    EXPECT_EQ(ov_net_parse_classes(outer.c_str(), cc, loader, handler, &c), ov_error_parse);
    ASSERT_FALSE(c.messages.empty());
    EXPECT_EQ(c.messages[0], "loading class `Inner' failed");
    EXPECT_EQ(entries(ov_cc_get_members(cc)), std::vector<ov_class_t>{keep});
    EXPECT_EQ(node_count(keep), 1u);
  }
}

} // namespace
} // namespace orvel::test
