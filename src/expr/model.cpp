#include "expr/model.h"

#include "model/node.h"

namespace orvel {

void ModelDeleter::operator()(ov_model_s *model) const noexcept { delete model; }

} // namespace orvel
