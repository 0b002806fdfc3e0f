/* A first look at the library through its C interface: a small weather
 * network with named nodes, labelled states, links, filled tables and
 * attributes, and the way every call reports failure. */
#include <orvel.h>
#include <stdio.h>

/* Reports a failed call with the error the library recorded for it. */
static int failed(const char *what) {
  ov_error_t code = ov_error_code();
  fprintf(stderr, "%s failed: %s: %s\n", what, ov_error_name(code), ov_error_description(code));
  return 1;
}

/* A discrete node with a name and labelled states. */
static ov_node_t new_node(ov_domain_t domain, ov_category_t category, const char *name, const char *const *labels,
                          int count) {
  ov_node_t node = ov_domain_new_node(domain, category, ov_kind_discrete);
  int i;
  if (node == NULL || ov_node_set_name(node, name) != 0) return NULL;
  if (category == ov_category_utility) return node; /* a utility node has no states */
  if (ov_node_set_number_of_states(node, count) != 0) return NULL;
  for (i = 0; i < count; ++i)
    if (ov_node_set_state_label(node, i, labels[i]) != 0) return NULL;
  return node;
}

/* Copies numbers into a node's table; the count must match its size. */
static int fill_table(ov_node_t node, const ov_number_t *numbers, ov_count_t count) {
  ov_table_t table = ov_node_get_table(node);
  ov_number_t *data = ov_table_get_data(table);
  ov_count_t i;
  if (data == NULL || ov_table_get_size(table) != count) return failed("fill_table");
  for (i = 0; i < count; ++i) data[i] = numbers[i];
  /* Tell a compiled domain to reload the table at its next propagation. */
  ov_node_touch_table(node);
  return 0;
}

/* Prints a node's table, one configuration a line. The last node of the
 * table varies fastest. */
static void print_table(ov_node_t node) {
  ov_table_t table = ov_node_get_table(node);
  ov_node_t *nodes = ov_table_get_nodes(table);
  const ov_number_t *data = ov_table_get_data(table);
  ov_count_t size = ov_table_get_size(table), i, rest, states;
  int k, count = 0;

  while (nodes[count] != NULL) ++count;
  printf("table of %s:\n", ov_node_get_name(node));
  for (i = 0; i < size; ++i) {
    printf(" ");
    for (k = 0, rest = size; k < count; ++k) {
      states = ov_node_get_number_of_states(nodes[k]);
      rest /= states;
      printf(" %s=%s", ov_node_get_name(nodes[k]), ov_node_get_state_label(nodes[k], (i / rest) % states));
    }
    printf(" : %6.2f\n", data[i]);
  }
}

int main(void) {
  static const char *const sky[] = {"sunny", "cloudy", "rainy"};
  static const char *const choice[] = {"take", "leave"};
  /* P(Weather). */
  static const ov_number_t prior[] = {0.5f, 0.3f, 0.2f};
  /* P(Forecast | Weather): each row of three is one weather. */
  static const ov_number_t forecast_given_weather[] = {0.7f, 0.2f, 0.1f, 0.2f, 0.6f, 0.2f, 0.1f, 0.3f, 0.6f};
  /* Comfort(Weather, Umbrella) in the order of the table's nodes. */
  static const ov_number_t comfort_values[] = {20.0f, 100.0f, 70.0f, 80.0f, 90.0f, 0.0f};
  ov_domain_t domain;
  ov_node_t weather, forecast, umbrella, comfort, n;
  ov_attribute_t attribute;

  domain = ov_new_domain();
  if (domain == NULL) return failed("ov_new_domain");

  /* Nodes: tomorrow's weather, today's forecast of it, the decision to take
   * an umbrella, and how comfortable the outcome is. */
  weather = new_node(domain, ov_category_chance, "Weather", sky, 3);
  forecast = new_node(domain, ov_category_chance, "Forecast", sky, 3);
  umbrella = new_node(domain, ov_category_decision, "Umbrella", choice, 2);
  comfort = new_node(domain, ov_category_utility, "Comfort", NULL, 0);
  if (weather == NULL || forecast == NULL || umbrella == NULL || comfort == NULL) return failed("creating nodes");
  ov_node_set_label(weather, "Tomorrow's weather");

  /* Links; each reshapes the child's table. */
  if (ov_node_add_parent(forecast, weather) != 0 || ov_node_add_parent(comfort, umbrella) != 0 ||
      ov_node_add_parent(comfort, weather) != 0)
    return failed("ov_node_add_parent");
  if (ov_node_add_parent(weather, forecast) != 0)
    printf("Forecast -> Weather refused: %s\n", ov_error_name(ov_error_code()));

  /* Names must have the form of C identifiers and be unique. */
  if (ov_node_set_name(umbrella, "take umbrella") != 0)
    printf("\"take umbrella\" refused: %s\n", ov_error_name(ov_error_code()));
  if (ov_node_set_name(umbrella, "Weather") != 0)
    printf("\"Weather\" refused for a second node: %s\n", ov_error_name(ov_error_code()));
  printf("nodes, newest first:");
  for (n = ov_domain_get_first_node(domain); n != NULL; n = ov_node_get_next(n)) printf(" %s", ov_node_get_name(n));
  printf("\n");
  printf("\"rainy\" is state %lld of %s\n", (long long)ov_node_get_state_index_from_label(weather, "rainy"),
         ov_node_get_name(ov_domain_get_node_by_name(domain, "Weather")));

  /* Tables: a chance node's table starts at 1, a utility table at 0. */
  if (fill_table(weather, prior, 3) != 0 || fill_table(forecast, forecast_given_weather, 9) != 0 ||
      fill_table(comfort, comfort_values, 6) != 0)
    return 1;
  print_table(weather);
  print_table(forecast);
  print_table(comfort);
  if (ov_node_get_table(umbrella) == NULL) printf("a decision has no table: %s\n", ov_error_name(ov_error_code()));

  /* Attributes: key and value pairs kept for the application, newest first. */
  ov_domain_set_attribute(domain, "author", "orvel_example");
  ov_domain_set_attribute(domain, "created", "today");
  ov_node_set_attribute(comfort, "unit", "percent");
  for (attribute = ov_domain_get_first_attribute(domain); attribute != NULL;
       attribute = ov_attribute_get_next(attribute))
    printf("domain attribute %s = %s\n", ov_attribute_get_key(attribute), ov_attribute_get_value(attribute));
  printf("Comfort attribute unit = %s\n", ov_node_get_attribute(comfort, "unit"));

  /* Deleting the domain releases its nodes and tables. */
  if (ov_domain_delete(domain) != 0) return failed("ov_domain_delete");
  return 0;
}
