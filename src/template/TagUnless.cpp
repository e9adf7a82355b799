#include "template/TagUnless.h"

namespace drovel::templating {

namespace {

constexpr int endUnlessTerminates[] = {static_cast<int>(TagKind::Unless), static_cast<int>(TagKind::Elsif),
                                       static_cast<int>(TagKind::Else)};

}  // namespace

bool TagUnless::branchTaken() const { return !TagIf::branchTaken(); }

std::span<const int> TagEndUnless::terminatesScopesWithTags() const { return endUnlessTerminates; }

}  // namespace drovel::templating
