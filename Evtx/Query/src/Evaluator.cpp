#include "Evaluator.h"

#include "TimeText.h"

#include <optional>
#include <string>

namespace evtx::query
{
namespace
{
using Node = EventView::Node;

// A path's result is walked lazily, node by node, so that a test stops at the first hit.
struct Value
{
  enum class Kind
  {
    Boolean,
    Number,
    String,
    Nodes
  };
  Kind kind = Kind::Boolean;
  bool boolean = false;
  Number number;
  std::wstring string;
  const Path* path = nullptr;
  Node context = nullptr;
  bool atRoot = false;
};

bool IsEquality(CompareOp op) { return op == CompareOp::Eq || op == CompareOp::Ne; }

// One selected node; an element's text is read only when a comparison needs it.
class Item
{
public:
  Item(const EventView& view, Node node, const std::wstring* value) : m_view(view), m_node(node), m_value(value) {}
  const std::wstring& Text() const
  {
    if (m_value != nullptr)
      return *m_value;
    if (!m_loaded && m_node != nullptr)
      m_view.Text(m_node, m_cache);
    m_loaded = true;
    return m_cache;
  }

private:
  const EventView& m_view;
  Node m_node;
  const std::wstring* m_value;
  mutable std::wstring m_cache;
  mutable bool m_loaded = false;
};

class Evaluator
{
public:
  Evaluator(const EventView& view, const EvalContext& context) : m_view(view), m_context(context) {}

  bool Boolean(const Expr& e, Node node, bool atRoot) { return ToBoolean(Evaluate(e, node, atRoot)); }

private:
  // Calls visit(item) for each node the path selects, until visit returns true.
  template <class Visit>
  bool Walk(const Path& path, std::size_t index, Node node, bool atRoot, Visit& visit)
  {
    if (index == path.steps.size())
      return visit(Item(m_view, atRoot ? nullptr : node, nullptr));
    const Step& step = path.steps[index];
    switch (step.kind)
    {
    case Step::Kind::Self: return Walk(path, index + 1, node, atRoot, visit);
    case Step::Kind::Attribute:
    {
      std::wstring value;
      if (atRoot || !m_view.Attribute(node, step.name, value))
        return false;
      return visit(Item(m_view, node, &value));
    }
    case Step::Kind::Text:
    {
      std::wstring value;
      if (atRoot)
        return false;
      m_view.Text(node, value);
      return visit(Item(m_view, node, &value));
    }
    case Step::Kind::Element: break;
    }
    std::size_t position = 0;
    for (Node child = atRoot ? m_view.Root() : m_view.FirstChild(node); child != nullptr;
         child = atRoot ? nullptr : m_view.NextSibling(child))
    {
      if (!step.name.empty() && !m_view.NameIs(child, step.name))
        continue;
      ++position;
      if (PredicatesHold(step, child, position) && Walk(path, index + 1, child, false, visit))
        return true;
    }
    return false;
  }

  bool PredicatesHold(const Step& step, Node node, std::size_t position)
  {
    const std::size_t outer = m_position;
    m_position = position;
    const bool hold = AllPredicatesHold(step, node, position);
    m_position = outer;
    return hold;
  }

  bool AllPredicatesHold(const Step& step, Node node, std::size_t position)
  {
    for (const auto& predicate : step.predicates)
    {
      const Value v = Evaluate(*predicate, node, false);
      // A number as a predicate selects by position, as in XPath.
      if (v.kind == Value::Kind::Number)
      {
        if (!CompareNumbers(v.number, Number::FromUnsigned(position), CompareOp::Eq))
          return false;
      }
      else if (!ToBoolean(v))
      {
        return false;
      }
    }
    return true;
  }

  bool AnyNode(const Value& v)
  {
    auto any = [](const Item&) { return true; };
    return Walk(*v.path, 0, v.context, v.atRoot, any);
  }

  std::optional<std::wstring> FirstString(const Value& v)
  {
    std::optional<std::wstring> first;
    auto take = [&](const Item& item) {
      first = item.Text();
      return true;
    };
    Walk(*v.path, 0, v.context, v.atRoot, take);
    return first;
  }

  bool ToBoolean(const Value& v)
  {
    switch (v.kind)
    {
    case Value::Kind::Boolean: return v.boolean;
    case Value::Kind::Number: return v.number.valid && (v.number.magnitude != 0 || v.number.value != 0.0);
    case Value::Kind::String: return !v.string.empty();
    case Value::Kind::Nodes: return AnyNode(v);
    }
    return false;
  }

  Number ToNumber(const Value& v)
  {
    switch (v.kind)
    {
    case Value::Kind::Boolean: return Number::FromUnsigned(v.boolean ? 1 : 0);
    case Value::Kind::Number: return v.number;
    case Value::Kind::String: return ParseNumber(v.string);
    case Value::Kind::Nodes:
    {
      const auto first = FirstString(v);
      return first ? ParseNumber(*first) : Number{};
    }
    }
    return {};
  }

  std::optional<std::wstring> ToText(const Value& v)
  {
    switch (v.kind)
    {
    case Value::Kind::String: return v.string;
    case Value::Kind::Nodes: return FirstString(v);
    default: return std::nullopt;
    }
  }

  // Two single values (no node sets).
  static bool CompareAtoms(const Value& a, const Value& b, CompareOp op)
  {
    // Case-sensitive, code unit for code unit: Windows evaluates event XPath by XPath 1.0 rules.
    if (IsEquality(op) && a.kind == Value::Kind::String && b.kind == Value::Kind::String)
      return (a.string == b.string) == (op == CompareOp::Eq);
    const Number x = a.kind == Value::Kind::String ? ParseNumber(a.string) : a.number;
    const Number y = b.kind == Value::Kind::String ? ParseNumber(b.string) : b.number;
    if ((!x.valid || !y.valid) && a.kind == Value::Kind::String && b.kind == Value::Kind::String)
      return CompareTimes(a.string, b.string, op);
    return CompareNumbers(x, y, op);
  }

  // Event Viewer's custom time range compares @SystemTime with time texts by <= and >=, and
  // Windows selects the events inside the range: two times compare as instants, whatever their
  // number of fraction digits. Other texts stay NaN, as in XPath 1.0.
  static bool CompareTimes(const std::wstring& a, const std::wstring& b, CompareOp op)
  {
    const auto x = ParseSystemTime(a);
    const auto y = ParseSystemTime(b);
    if (!x || !y)
      return false;
    return CompareNumbers(Number::FromUnsigned(*x), Number::FromUnsigned(*y), op);
  }

  bool Compare(const Value& a, const Value& b, CompareOp op)
  {
    if (a.kind == Value::Kind::Boolean || b.kind == Value::Kind::Boolean)
    {
      const bool x = ToBoolean(a), y = ToBoolean(b);
      if (IsEquality(op))
        return (x == y) == (op == CompareOp::Eq);
      return CompareNumbers(Number::FromUnsigned(x), Number::FromUnsigned(y), op);
    }
    if (a.kind != Value::Kind::Nodes && b.kind == Value::Kind::Nodes)
      return Compare(b, a, Mirror(op));
    if (a.kind != Value::Kind::Nodes)
      return CompareAtoms(a, b, op);
    Value item;
    item.kind = Value::Kind::String;
    if (b.kind == Value::Kind::Nodes)
    {
      // Any pair of nodes that compares true.
      auto outer = [&](const Item& left) {
        item.string = left.Text();
        Value inner = item;
        auto test = [&](const Item& right) {
          Value other;
          other.kind = Value::Kind::String;
          other.string = right.Text();
          return CompareAtoms(inner, other, op);
        };
        return Walk(*b.path, 0, b.context, b.atRoot, test);
      };
      return Walk(*a.path, 0, a.context, a.atRoot, outer);
    }
    auto test = [&](const Item& left) {
      item.string = left.Text();
      return CompareAtoms(item, b, op);
    };
    return Walk(*a.path, 0, a.context, a.atRoot, test);
  }

  Value TimeDiff(const Expr& e, Node node, bool atRoot)
  {
    Value result;
    result.kind = Value::Kind::Number;
    const auto first = ToText(Evaluate(*e.left, node, atRoot));
    const auto from = first ? ParseSystemTime(*first) : std::nullopt;
    std::optional<std::uint64_t> to = m_context.nowFileTime;
    if (e.right)
    {
      const auto second = ToText(Evaluate(*e.right, node, atRoot));
      to = second ? ParseSystemTime(*second) : std::nullopt;
    }
    if (from && to)
    {
      const auto ticks = static_cast<std::int64_t>(*to - *from);
      result.number = Number::FromInteger(ticks / 10'000);
    }
    return result;
  }

  Value Evaluate(const Expr& e, Node node, bool atRoot)
  {
    Value v;
    switch (e.kind)
    {
    case Expr::Kind::Or: v.boolean = Boolean(*e.left, node, atRoot) || Boolean(*e.right, node, atRoot); break;
    case Expr::Kind::And: v.boolean = Boolean(*e.left, node, atRoot) && Boolean(*e.right, node, atRoot); break;
    case Expr::Kind::Not: v.boolean = !Boolean(*e.left, node, atRoot); break;
    case Expr::Kind::Boolean: v.boolean = e.boolean; break;
    case Expr::Kind::Compare:
      v.boolean = Compare(Evaluate(*e.left, node, atRoot), Evaluate(*e.right, node, atRoot), e.op);
      break;
    case Expr::Kind::Band:
    {
      const Number a = ToNumber(Evaluate(*e.left, node, atRoot));
      const Number b = ToNumber(Evaluate(*e.right, node, atRoot));
      v.boolean = a.valid && b.valid && (NumberBits(a) & NumberBits(b)) != 0;
      break;
    }
    case Expr::Kind::TimeDiff: return TimeDiff(e, node, atRoot);
    case Expr::Kind::Position:
      v.kind = Value::Kind::Number;
      v.number = Number::FromUnsigned(m_position);
      break;
    case Expr::Kind::Literal:
      v.kind = Value::Kind::String;
      v.string = e.literal;
      break;
    case Expr::Kind::Number:
      v.kind = Value::Kind::Number;
      v.number = e.number;
      break;
    case Expr::Kind::Path:
      v.kind = Value::Kind::Nodes;
      v.path = &e.path;
      v.context = node;
      v.atRoot = atRoot;
      break;
    }
    return v;
  }

  const EventView& m_view;
  const EvalContext& m_context;
  // The position of the node a predicate is tested on, among the nodes its step selects; the
  // event itself is the first of the virtual document's top-level elements.
  std::size_t m_position = 1;
};
} // namespace

bool SelectsEvent(const Expr& selection, const EventView& event, const EvalContext& context)
{
  Evaluator evaluator(event, context);
  return evaluator.Boolean(selection, nullptr, true);
}
} // namespace evtx::query
