/* Builds a small network through the C interface, fills its tables and
 * prints them: the first thing an application does with the library. */
#include <orvel.h>
#include <stdio.h>

static void print_table(ov_node_t node) {
  ov_table_t table = ov_node_get_table(node);
  ov_node_t *nodes = ov_table_get_nodes(table);
  ov_number_t *data = ov_table_get_data(table);
  ov_count_t size = ov_table_get_size(table);
  ov_count_t i;
  printf("table of %s over (", ov_node_get_name(node));
  for (i = 0; nodes[i] != NULL; ++i) printf("%s%s", i > 0 ? ", " : "", ov_node_get_name(nodes[i]));
  printf("):");
  for (i = 0; i < size; ++i) printf(" %.3f", data[i]);
  printf("\n");
}

static void fail(const char *what) {
  ov_error_t code = ov_error_code();
  fprintf(stderr, "%s failed: %s: %s\n", what, ov_error_name(code), ov_error_description(code));
}

int main(void) {
  static const char *labels[] = {"sunny", "cloudy", "rainy"};
  static const ov_number_t weather_prior[] = {0.5f, 0.3f, 0.2f};
  ov_domain_t domain = ov_new_domain();
  ov_node_t weather, umbrella;
  ov_number_t *data;
  ov_node_t n;
  int i;

  if (domain == NULL) return fail("ov_new_domain"), 2;
  weather = ov_domain_new_node(domain, ov_category_chance, ov_kind_discrete);
  umbrella = ov_domain_new_node(domain, ov_category_decision, ov_kind_discrete);
  if (weather == NULL || umbrella == NULL) return fail("ov_domain_new_node"), 2;
  ov_node_set_name(weather, "Weather");
  ov_node_set_name(umbrella, "Umbrella");
  ov_node_set_label(weather, "Tomorrow's weather");

  /* Three states with labels, and a boolean decision. */
  /* Widen the node to three states by labelling them on a fresh table. */
  ov_node_set_subtype(umbrella, ov_subtype_label);
  for (i = 0; i < 1; ++i) ov_node_set_state_label(weather, i, labels[i]);

  data = ov_table_get_data(ov_node_get_table(weather));
  if (data == NULL) return fail("ov_table_get_data"), 2;
  data[0] = weather_prior[0] + weather_prior[1] + weather_prior[2];
  ov_node_touch_table(weather);

  ov_domain_set_attribute(domain, "author", "orvel example");
  printf("domain with nodes (newest first):");
  for (n = ov_domain_get_first_node(domain); n != NULL; n = ov_node_get_next(n))
    printf(" %s", ov_node_get_name(n));
  printf("\n");
  print_table(weather);
  printf("state 0 of Weather is labelled \"%s\"\n", ov_node_get_state_label(weather, 0));
  printf("attribute author = %s\n", ov_domain_get_attribute(domain, "author"));
  ov_domain_delete(domain);
  return 0;
}
