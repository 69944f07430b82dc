#include "RecordIdBound.h"

#include <algorithm>

namespace evtx::query
{
namespace
{
// Where a context node sits in the event: only these positions can reach EventRecordID.
enum class Place
{
  Root,
  Event,
  System,
  RecordId,
  Elsewhere
};

Place StepInto(Place from, const Step& step)
{
  if (step.kind == Step::Kind::Self)
    return from;
  if (step.kind != Step::Kind::Element)
    return Place::Elsewhere;
  switch (from)
  {
  case Place::Root: return step.name.empty() || step.name == L"Event" ? Place::Event : Place::Elsewhere;
  case Place::Event: return step.name == L"System" ? Place::System : Place::Elsewhere;
  case Place::System: return step.name == L"EventRecordID" ? Place::RecordId : Place::Elsewhere;
  default: return Place::Elsewhere;
  }
}

std::uint64_t Bound(const Expr& e, Place place);

// A path is true only where every predicate on it holds; the bound is the largest of theirs.
std::uint64_t PathBound(const Path& path, Place place, Place* end)
{
  std::uint64_t bound = 0;
  for (const Step& step : path.steps)
  {
    place = StepInto(place, step);
    for (const auto& predicate : step.predicates)
      bound = std::max(bound, Bound(*predicate, place));
  }
  if (end != nullptr)
    *end = place;
  return bound;
}

// "path op number" where the path ends on EventRecordID.
std::uint64_t ComparisonBound(const Expr& pathSide, const Expr& numberSide, CompareOp op, Place place)
{
  Place end = Place::Elsewhere;
  const std::uint64_t inner = PathBound(pathSide.path, place, &end);
  if (end != Place::RecordId || numberSide.kind != Expr::Kind::Number)
    return inner;
  const Number& n = numberSide.number;
  if (!n.valid || !n.integral || n.negative)
    return inner;
  std::uint64_t bound = 0;
  switch (op)
  {
  case CompareOp::Gt: bound = n.magnitude == UINT64_MAX ? UINT64_MAX : n.magnitude + 1; break;
  case CompareOp::Ge:
  case CompareOp::Eq: bound = n.magnitude; break;
  default: break;
  }
  return std::max(inner, bound);
}

std::uint64_t Bound(const Expr& e, Place place)
{
  switch (e.kind)
  {
  case Expr::Kind::And: return std::max(Bound(*e.left, place), Bound(*e.right, place));
  case Expr::Kind::Or: return std::min(Bound(*e.left, place), Bound(*e.right, place));
  case Expr::Kind::Path: return PathBound(e.path, place, nullptr);
  case Expr::Kind::Compare:
    if (e.left->kind == Expr::Kind::Path)
      return ComparisonBound(*e.left, *e.right, e.op, place);
    if (e.right->kind == Expr::Kind::Path)
      return ComparisonBound(*e.right, *e.left, Mirror(e.op), place);
    return 0;
  default: return 0;
  }
}
} // namespace

std::uint64_t MinRecordIdOf(const Expr& selection) { return Bound(selection, Place::Root); }
} // namespace evtx::query
