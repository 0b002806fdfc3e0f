// Copies of domains and nodes: a copy is where its source is, bit for bit,
// and from then on the two never touch each other.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "orvel.h"

namespace {

std::string network(const char *name) { return std::string(ORVEL_NETWORKS "/") + name; }

ov_domain_t parse(const std::string &path) {
  ov_domain_t domain = ov_net_parse_domain(path.c_str(), nullptr, nullptr);
  EXPECT_NE(domain, nullptr) << path;
  return domain;
}

std::vector<ov_node_t> nodes_of(ov_domain_t domain) {
  std::vector<ov_node_t> nodes;
  for (ov_node_t n = ov_domain_get_first_node(domain); n != nullptr; n = ov_node_get_next(n)) nodes.push_back(n);
  return nodes;
}

void hex(std::string &out, double x) {
  char text[40];
  std::snprintf(text, sizeof text, " %a", x);
  out += text;
}

// Everything a user can see of a domain, with every number exact: names,
// labels, parents, tables, evidence and, when compiled, beliefs and the
// probability of the evidence.
std::string fingerprint(ov_domain_t domain) {
  std::string out;
  const bool compiled = ov_domain_is_compiled(domain) != 0;
  for (ov_node_t node : nodes_of(domain)) {
    out += ov_node_get_name(node);
    out += " [";
    for (ov_node_t *p = ov_node_get_parents(node); *p != nullptr; ++p) out += std::string(" ") + ov_node_get_name(*p);
    out += " ] states";
    const ov_count_t states = ov_node_get_number_of_states(node);
    for (ov_count_t s = 0; s < states; ++s) out += std::string(" ") + ov_node_get_state_label(node, s);
    ov_table_t table = ov_node_get_table(node);
    out += "\n table";
    for (ov_node_t *t = ov_table_get_nodes(table); *t != nullptr; ++t) out += std::string(" ") + ov_node_get_name(*t);
    const ov_number_t *data = ov_table_get_data(table);
    for (ov_count_t i = 0; i < ov_table_get_size(table); ++i) hex(out, data[i]);
    out += "\n finding";
    for (ov_count_t s = 0; s < states; ++s) hex(out, ov_node_get_entered_finding(node, s));
    if (compiled) {
      out += "\n belief";
      for (ov_count_t s = 0; s < states; ++s) hex(out, ov_node_get_belief(node, s));
    }
    out += "\n";
  }
  if (compiled) {
    out += "normalization";
    hex(out, ov_domain_get_normalization_constant(domain));
    out += ov_domain_evidence_is_propagated(domain) ? " propagated\n" : " pending\n";
  }
  return out;
}

std::vector<std::string> names(ov_node_t *list) {
  std::vector<std::string> out;
  for (; list != nullptr && *list != nullptr; ++list) out.push_back(ov_node_get_name(*list));
  return out;
}

// Selects the most likely state of a node, so that evidence stays possible.
void select_likely(ov_node_t node) {
  ov_index_t best = 0;
  for (ov_count_t s = 1; s < ov_node_get_number_of_states(node); ++s)
    if (ov_node_get_belief(node, s) > ov_node_get_belief(node, best)) best = s;
  ASSERT_EQ(ov_node_select_state(node, best), ov_error_none);
}

// Hard evidence on `count` random nodes, propagated one by one.
void enter_evidence(ov_domain_t domain, std::mt19937 &rng, int count) {
  std::vector<ov_node_t> nodes = nodes_of(domain);
  for (int i = 0; i < count; ++i) {
    select_likely(nodes[rng() % nodes.size()]);
    ASSERT_EQ(ov_domain_propagate(domain, ov_equilibrium_sum, ov_mode_normal), ov_error_none);
  }
}

TEST(DomainClone, CompiledCloneIsWhereItsSourceIs) {
  // A chain graph too: its components and normalisers are copied.
  for (const std::string &file : {network("alarm.net"), network("hepar2.net"), network("pigs.net"),
                                  std::string(ORVEL_TEST_DATA "/net/chain_ok.net")}) {
    SCOPED_TRACE(file);
    ov_domain_t source = parse(file);
    ASSERT_EQ(ov_domain_compile(source), ov_error_none);
    std::mt19937 rng(7);
    enter_evidence(source, rng, 4);
    // One more finding, entered but not propagated.
    select_likely(nodes_of(source)[2]);

    ov_domain_t copy = ov_domain_clone(source);
    ASSERT_NE(copy, nullptr) << ov_error_name(ov_error_code());
    EXPECT_TRUE(ov_domain_is_compiled(copy));
    EXPECT_EQ(names(ov_domain_get_elimination_order(copy)), names(ov_domain_get_elimination_order(source)));
    EXPECT_EQ(ov_domain_get_number_of_cliques(copy), ov_domain_get_number_of_cliques(source));
    EXPECT_EQ(fingerprint(copy), fingerprint(source));
    // No handle of the copy leads into the source.
    for (ov_node_t node : nodes_of(copy)) {
      ov_node_t twin = ov_domain_get_node_by_name(copy, ov_node_get_name(node));
      ASSERT_EQ(twin, node);
      EXPECT_EQ(ov_node_get_domain(twin), copy);
      EXPECT_NE(twin, ov_domain_get_node_by_name(source, ov_node_get_name(node)));
    }
    for (ov_clique_t c = ov_domain_get_first_clique(copy); c != nullptr; c = ov_clique_get_next(c))
      for (ov_node_t *m = ov_clique_get_members(c); *m != nullptr; ++m) EXPECT_EQ(ov_node_get_domain(*m), copy);

    // The pending finding, then new evidence, propagate the same on both.
    ASSERT_EQ(ov_domain_propagate(source, ov_equilibrium_sum, ov_mode_normal), ov_error_none);
    ASSERT_EQ(ov_domain_propagate(copy, ov_equilibrium_sum, ov_mode_normal), ov_error_none);
    std::mt19937 rng_source(11), rng_copy(11);
    enter_evidence(source, rng_source, 2);
    enter_evidence(copy, rng_copy, 2);
    EXPECT_EQ(fingerprint(copy), fingerprint(source));

    // The copy outlives its source.
    ov_domain_retract_findings(source);
    ASSERT_EQ(ov_domain_propagate(source, ov_equilibrium_max, ov_mode_normal), ov_error_none);
    const std::string expected = fingerprint(source);
    ov_domain_delete(source);
    ov_domain_retract_findings(copy);
    ASSERT_EQ(ov_domain_propagate(copy, ov_equilibrium_max, ov_mode_normal), ov_error_none);
    EXPECT_EQ(fingerprint(copy), expected);
    ov_domain_delete(copy);
  }
}

TEST(DomainClone, TriangulatedCloneCompilesAsItsSource) {
  // A triangulation without table data is copied as it stands.
  ov_domain_t source = parse(network("insurance.net"));
  ASSERT_EQ(ov_domain_triangulate(source, ov_tm_fill_in_size), ov_error_none);
  ov_domain_t copy = ov_domain_clone(source);
  ASSERT_NE(copy, nullptr);
  EXPECT_TRUE(ov_domain_is_triangulated(copy));
  ASSERT_EQ(ov_domain_compile(source), ov_error_none);
  ASSERT_EQ(ov_domain_compile(copy), ov_error_none);
  EXPECT_EQ(ov_domain_get_jt_cost(copy), ov_domain_get_jt_cost(source));
  EXPECT_EQ(fingerprint(copy), fingerprint(source));
  ov_domain_delete(source);
  ov_domain_delete(copy);
}

TEST(DomainClone, ClonesAnswerOnThreadsAsTheSourceDoes) {
  // Each thread takes its own clone through its own evidence; the source
  // then takes the same evidence, one after the other, and must agree.
  ov_domain_t source = parse(network("hepar2.net"));
  ASSERT_EQ(ov_domain_compile(source), ov_error_none);
  std::vector<ov_domain_t> clones;
  for (int i = 0; i < 4; ++i) clones.push_back(ov_domain_clone(source));
  std::vector<std::string> results(clones.size());
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < clones.size(); ++i)
    threads.emplace_back([&, i] {
      std::mt19937 rng(static_cast<unsigned>(i));
      enter_evidence(clones[i], rng, 5);
      results[i] = fingerprint(clones[i]);
    });
  for (std::thread &t : threads) t.join();
  for (std::size_t i = 0; i < clones.size(); ++i) {
    ov_domain_t again = ov_domain_clone(source);
    std::mt19937 rng(static_cast<unsigned>(i));
    enter_evidence(again, rng, 5);
    EXPECT_EQ(results[i], fingerprint(again)) << i;
    ov_domain_delete(again);
    ov_domain_delete(clones[i]);
  }
  ov_domain_delete(source);
}

// One random step on a domain: evidence, retraction, propagation, a table
// edit, a compile, an edge, a label or a deletion. Node and state choices
// come from `rng`, so that two domains in the same state take the same step.
std::string random_step(ov_domain_t domain, std::mt19937 &rng) {
  std::vector<ov_node_t> nodes = nodes_of(domain);
  ov_node_t node = nodes[rng() % nodes.size()];
  ov_node_t other = nodes[rng() % nodes.size()];
  const ov_index_t state = static_cast<ov_index_t>(rng() % ov_node_get_number_of_states(node));
  ov_status_t status = 0;
  const unsigned op = rng() % 8;
  switch (op) {
  case 0: status = ov_node_select_state(node, state); break;
  case 1: status = ov_node_retract_findings(node); break;
  case 2:
    status = ov_domain_propagate(domain, ov_equilibrium_sum, rng() % 2 ? ov_mode_normal : ov_mode_fast_retraction);
    break;
  case 3: {
    ov_table_t table = ov_node_get_table(node);
    ov_table_get_data(table)[rng() % ov_table_get_size(table)] = static_cast<ov_number_t>(rng() % 100) / 64.0f;
    status = ov_node_touch_table(node);
    break;
  }
  case 4: status = ov_domain_is_compiled(domain) ? 0 : ov_domain_compile(domain); break;
  case 5: status = ov_node_add_parent(node, other); break;
  case 6: status = ov_node_set_state_label(node, state, ("s" + std::to_string(rng() % 1000)).c_str()); break;
  default: status = nodes.size() > 20 ? ov_node_delete(node) : 0; break;
  }
  return std::to_string(op) + ":" + std::to_string(status);
}

TEST(DomainClone, SourceAndCloneNeverTouchEachOther) {
  // A source and its clone each take their own random steps, interleaved;
  // each is compared after every step with a fresh parse that took the
  // same steps alone.
  const std::string path = network("alarm.net");
  auto prepare = [&] {
    ov_domain_t domain = parse(path);
    EXPECT_EQ(ov_domain_compile(domain), ov_error_none);
    std::mt19937 rng(3);
    enter_evidence(domain, rng, 3);
    return domain;
  };
  for (unsigned seed = 1; seed <= 3; ++seed) {
    ov_domain_t source = prepare(), source_twin = prepare(), copy_twin = prepare();
    ov_domain_t copy = ov_domain_clone(source);
    ASSERT_NE(copy, nullptr);
    std::mt19937 rng_source(seed), rng_source_twin(seed), rng_copy(seed + 100), rng_copy_twin(seed + 100);
    for (int step = 0; step < 40; ++step) {
      SCOPED_TRACE(std::to_string(seed) + "/" + std::to_string(step));
      ASSERT_EQ(random_step(source, rng_source), random_step(source_twin, rng_source_twin));
      ASSERT_EQ(random_step(copy, rng_copy), random_step(copy_twin, rng_copy_twin));
      ASSERT_EQ(fingerprint(source), fingerprint(source_twin));
      ASSERT_EQ(fingerprint(copy), fingerprint(copy_twin));
    }
    for (ov_domain_t d : {source, source_twin, copy, copy_twin}) ov_domain_delete(d);
  }
}

TEST(DomainClone, SettingsModelsAndRefusals) {
  ov_domain_t source = ov_net_parse_from_string(R"(
    net { }
    node A { states = ("a0" "a1"); }
    node B { label = "count"; states = ("0" "1" "2"); subtype = number; state_values = (0 1 2); }
    potential (A) { data = (0.25 0.75); }
    potential (B | A) { model_nodes = (); model_data = ( Binomial (2, if (A == "a0", 0.1, 0.7)) ); }
  )",
                                                nullptr);
  ASSERT_NE(source, nullptr) << ov_error_name(ov_error_code());
  ov_domain_set_concurrency_level(source, 3);
  ov_domain_set_grain_size(source, 777);
  ov_domain_set_attribute(source, "owner", "me");
  ov_domain_seed_random(source, 99);
  ov_domain_get_uniform_deviate(source);
  ASSERT_EQ(ov_domain_set_number_of_cases(source, 3), 0);
  ASSERT_EQ(ov_node_set_case_state(ov_domain_get_node_by_name(source, "A"), 1, 1), 0);
  ASSERT_EQ(ov_domain_set_case_count(source, 2, 2.5f), 0);
  ov_domain_t copy = ov_domain_clone(source);
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(ov_domain_get_concurrency_level(copy), 3);
  EXPECT_EQ(ov_domain_get_grain_size(copy), 777);
  EXPECT_STREQ(ov_domain_get_attribute(copy, "owner"), "me");
  for (int i = 0; i < 5; ++i) EXPECT_EQ(ov_domain_get_uniform_deviate(copy), ov_domain_get_uniform_deviate(source));
  ov_node_t b = ov_domain_get_node_by_name(copy, "B");
  EXPECT_STREQ(ov_node_get_label(b), "count");
  EXPECT_EQ(ov_node_get_state_value(b, 2), 2.0);
  ASSERT_EQ(ov_domain_get_number_of_cases(copy), 3);
  EXPECT_EQ(ov_node_get_case_state(ov_domain_get_node_by_name(copy, "A"), 1), 1);
  EXPECT_EQ(ov_node_case_is_set(ov_domain_get_node_by_name(copy, "A"), 0), 0);
  EXPECT_EQ(ov_domain_get_case_count(copy, 2), 2.5f);
  // The model follows the copy's own A: the source can go first.
  ov_domain_delete(source);
  ASSERT_EQ(ov_domain_compile(copy), ov_error_none);
  EXPECT_NEAR(ov_node_get_belief(b, 2), 0.25 * 0.01 + 0.75 * 0.49, 1e-6);
  ov_domain_delete(copy);

  EXPECT_EQ(ov_domain_clone(nullptr), nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_usage);
  ov_class_collection_t cc = ov_new_class_collection();
  ov_class_t cls = ov_cc_new_class(cc);
  EXPECT_EQ(ov_domain_clone(reinterpret_cast<ov_domain_t>(cls)), nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_usage);
  ov_cc_delete(cc);
}

TEST(NodeClone, SameParentsTableAndModelNoChildren) {
  ov_domain_t domain = ov_net_parse_from_string(R"(
    net { }
    node A { states = ("a0" "a1"); }
    node C { states = ("c0" "c1" "c2"); }
    node B { label = "count"; states = ("0" "1" "2"); subtype = number; state_values = (0 1 2); }
    node D { states = ("d0" "d1"); }
    potential (A) { data = (0.25 0.75); }
    potential (C) { data = (0.2 0.3 0.5); }
    potential (B | A C) { model_nodes = (C); model_data = ( Binomial (2, if (A == "a0", 0.1, 0.7)),
                          Binomial (2, 0.5), Binomial (2, 0.9) ); }
    potential (D | B) { data = (0.5 0.5 0.1 0.9 0.3 0.7); }
  )",
                                                nullptr);
  ASSERT_NE(domain, nullptr) << ov_error_name(ov_error_code());
  ov_node_t b = ov_domain_get_node_by_name(domain, "B");
  ASSERT_EQ(ov_domain_compile(domain), ov_error_none);
  ov_node_t copy = ov_node_clone(b);
  ASSERT_NE(copy, nullptr) << ov_error_name(ov_error_code());
  EXPECT_FALSE(ov_domain_is_compiled(domain));
  EXPECT_EQ(ov_node_get_domain(copy), domain);
  EXPECT_EQ(names(ov_node_get_parents(copy)), names(ov_node_get_parents(b)));
  EXPECT_EQ(*ov_node_get_children(copy), nullptr);
  EXPECT_STREQ(ov_node_get_label(copy), "count");
  EXPECT_EQ(ov_node_get_subtype(copy), ov_subtype_number);
  // Named as any new node: by its number in the domain's list.
  EXPECT_STREQ(ov_node_get_name(copy), "C5");
  ov_table_t table = ov_node_get_table(copy), original = ov_node_get_table(b);
  std::vector<std::string> expected = names(ov_table_get_nodes(original));
  for (std::string &name : expected)
    if (name == "B") name = "C5";
  EXPECT_EQ(names(ov_table_get_nodes(table)), expected);
  ASSERT_EQ(ov_table_get_size(table), ov_table_get_size(original));
  for (ov_count_t i = 0; i < ov_table_get_size(table); ++i)
    EXPECT_EQ(ov_table_get_data(table)[i], ov_table_get_data(original)[i]);
  ov_model_t model = ov_node_get_model(copy);
  ASSERT_NE(model, nullptr);
  EXPECT_NE(model, ov_node_get_model(b));
  for (ov_index_t i = 0; i < 3; ++i) {
    char *got = ov_expression_to_string(ov_model_get_expression(model, i));
    char *want = ov_expression_to_string(ov_model_get_expression(ov_node_get_model(b), i));
    EXPECT_STREQ(got, want);
    std::free(got);
    std::free(want);
  }
  // Same parents and table, no children: the same marginal.
  ASSERT_EQ(ov_domain_compile(domain), ov_error_none);
  for (ov_index_t s = 0; s < 3; ++s) EXPECT_EQ(ov_node_get_belief(copy, s), ov_node_get_belief(b, s));

  EXPECT_EQ(ov_node_clone(nullptr), nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_usage);
  ov_domain_delete(domain);
}

} // namespace
