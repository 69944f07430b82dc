#include "Cim/Wql/BoundQuery.h"

#include "Comparison.h"
#include "Text.h"

#include "Cim/Wql/Like.h"
#include "Cim/Wql/Parser.h"

#include <optional>

namespace cim::wql
{
struct BoundQuery::Node
{
  Expr::Kind kind = Expr::Kind::Compare;
  std::vector<Node> children;
  std::size_t property = 0;
  CompareOp op = CompareOp::Equal;
  bool negated = false;
  std::optional<Comparand> constant;
  std::optional<LikePattern> pattern;
};

namespace
{
using Node = BoundQuery::Node;

std::size_t Resolve(const ClassDecl& decl, const std::wstring& name)
{
  const std::size_t index = decl.Find(name);
  if (index == ClassDecl::npos)
    throw Error{kInvalidQuery, L"Invalid query: no such property: " + name};
  return index;
}

CompareOp Mirror(CompareOp op)
{
  switch (op)
  {
  case CompareOp::Less: return CompareOp::Greater;
  case CompareOp::LessEqual: return CompareOp::GreaterEqual;
  case CompareOp::Greater: return CompareOp::Less;
  case CompareOp::GreaterEqual: return CompareOp::LessEqual;
  default: return op;
  }
}

Node Bind(const Expr& expr, const ClassDecl& decl)
{
  Node node;
  node.kind = expr.kind;
  node.negated = expr.negated;
  switch (expr.kind)
  {
  case Expr::Kind::And:
  case Expr::Kind::Or:
  case Expr::Kind::Not:
    node.children.reserve(expr.children.size());
    for (const Expr& child : expr.children)
      node.children.push_back(Bind(child, decl));
    return node;
  case Expr::Kind::IsNull:
    node.property = Resolve(decl, expr.left.property);
    return node;
  case Expr::Kind::Like: {
    node.property = Resolve(decl, expr.left.property);
    if (decl.properties[node.property].type != Type::String)
      throw Error{kInvalidQuery, L"Invalid query: LIKE needs a string property: " + expr.left.property};
    node.pattern = LikePattern::Compile(std::get<std::wstring>(expr.right.literal));
    return node;
  }
  case Expr::Kind::Compare:
    break;
  }
  // The parser guarantees one property and one constant; put the property on the left.
  const bool propertyLeft = expr.left.isProperty;
  const Operand& property = propertyLeft ? expr.left : expr.right;
  const Operand& constant = propertyLeft ? expr.right : expr.left;
  node.property = Resolve(decl, property.property);
  node.op = propertyLeft ? expr.op : Mirror(expr.op);
  if (std::holds_alternative<std::monostate>(constant.literal))
  {
    // "= NULL" is IS NULL and "<> NULL" IS NOT NULL; NULL cannot be ordered.
    if (node.op != CompareOp::Equal && node.op != CompareOp::NotEqual)
      throw Error{kInvalidQuery, L"Invalid query: NULL can only be compared with = or <>"};
    node.kind = Expr::Kind::IsNull;
    node.negated = node.op == CompareOp::NotEqual;
    return node;
  }
  node.constant = FromLiteral(constant.literal, decl.properties[node.property].type);
  if (!node.constant)
    throw Error{kInvalidQuery, L"Invalid query: the constant does not fit the type of " + property.property};
  return node;
}

bool Evaluate(const Node& node, const Instance& instance)
{
  switch (node.kind)
  {
  case Expr::Kind::And:
    for (const Node& child : node.children)
      if (!Evaluate(child, instance))
        return false;
    return true;
  case Expr::Kind::Or:
    for (const Node& child : node.children)
      if (Evaluate(child, instance))
        return true;
    return false;
  case Expr::Kind::Not:
    return !Evaluate(node.children.front(), instance);
  case Expr::Kind::IsNull:
    return instance.elements[node.property].value.has_value() == node.negated;
  case Expr::Kind::Like: {
    const auto& value = instance.elements[node.property].value;
    if (!value)
      return false;
    const auto* text = std::get_if<std::wstring>(&*value);
    return text && node.pattern->Matches(*text) != node.negated;
  }
  case Expr::Kind::Compare: {
    const auto& value = instance.elements[node.property].value;
    if (!value)
      return false;
    const auto order = Compare(FromValue(*value), *node.constant);
    return order && Holds(node.op, *order);
  }
  }
  return false;
}
} // namespace

bool IsKey(const PropertyDecl& property)
{
  for (const Qualifier& qualifier : property.qualifiers)
    if (CompareNoCase(qualifier.name, L"Key") == 0)
      if (const auto* flag = std::get_if<bool>(&qualifier.value))
        return *flag;
  return false;
}

BoundQuery::BoundQuery(const Query& query, std::shared_ptr<const ClassDecl> decl)
    : m_decl(std::move(decl)), m_keep(m_decl->properties.size(), query.selectAll),
      m_keepsAll(query.selectAll)
{
  if (!query.selectAll)
  {
    for (std::size_t i = 0; i < m_decl->properties.size(); ++i)
      if (IsKey(m_decl->properties[i]))
        m_keep[i] = true;
    for (const std::wstring& name : query.properties)
      m_keep[Resolve(*m_decl, name)] = true;
  }
  if (query.where)
    m_where = std::make_unique<Node>(Bind(*query.where, *m_decl));
}

BoundQuery::~BoundQuery() = default;
BoundQuery::BoundQuery(BoundQuery&&) noexcept = default;
BoundQuery& BoundQuery::operator=(BoundQuery&&) noexcept = default;

bool BoundQuery::Matches(const Instance& instance) const
{
  return !m_where || Evaluate(*m_where, instance);
}

void BoundQuery::Project(Instance& instance) const
{
  if (m_keepsAll)
    return;
  for (std::size_t i = 0; i < instance.elements.size() && i < m_keep.size(); ++i)
    if (!m_keep[i])
      instance.elements[i] = Element{};
}
} // namespace cim::wql
