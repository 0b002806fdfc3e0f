// EM learning of conditional probability tables from the domain's cases,
// and the log-likelihood of the cases with the criteria built on it.
#pragma once

#include "model/domain.h"
#include "orvel.h"

namespace orvel {

// Learns the tables of the nodes that have an experience table, starting
// from their current tables weighted by the experience, until the relative
// change of the log-likelihood is within the domain's tolerance or the
// iteration limit is reached. Reports each iteration to the domain's log.
ov_status_t domain_learn_tables(Domain *domain);
// The same on a domain unfolded from a class: nodes that stand for the same
// class node share one set of counts, so that instances share parameters.
ov_status_t domain_learn_class_tables(Domain *domain);

// The log-likelihood of the cases under the current tables (cached until a
// case or a table changes), and the criteria AIC = LL - P and
// BIC = LL - P ln(N) / 2 for P free parameters. 1.0 on failure.
double domain_log_likelihood(Domain *domain);
double domain_aic(Domain *domain);
double domain_bic(Domain *domain);

} // namespace orvel
