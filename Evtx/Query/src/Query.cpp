#include "Evtx/Query/Query.h"

#include "Evaluator.h"
#include "RecordIdBound.h"
#include "Evtx/Query/Utf.h"
#include "XPathParser.h"

#include <pugixml.hpp>

#include <algorithm>
#include <cstring>
#include <cwctype>

namespace evtx::query
{
namespace
{
bool IsSpace(wchar_t c) { return c == L' ' || c == L'\t' || c == L'\r' || c == L'\n'; }

std::wstring_view Trim(std::wstring_view text)
{
  while (!text.empty() && IsSpace(text.front()))
    text.remove_prefix(1);
  while (!text.empty() && IsSpace(text.back()))
    text.remove_suffix(1);
  return text;
}

// The XPath text of a Select or Suppress: its character data, entities already replaced.
std::wstring ElementText(const pugi::xml_node& node)
{
  std::string text;
  for (const pugi::xml_node& child : node.children())
  {
    if (child.type() == pugi::node_pcdata || child.type() == pugi::node_cdata)
      text += child.value();
    else if (child.type() == pugi::node_element)
      throw QueryError(std::string("unexpected element <") + child.name() + "> inside <" + node.name() + ">");
  }
  return FromUtf8(text);
}
// Windows keeps its channels as registry keys (WINEVT\Channels), whose names are not case
// sensitive: https://learn.microsoft.com/en-us/windows/win32/sysinfo/structure-of-the-registry.
// A file path is compared as this system compares file names.
bool SameChannel(std::wstring_view a, std::wstring_view b)
{
  const bool file = (!a.empty() && a.front() == L'/') || a.substr(0, 7) == L"file://";
  if (file || a.size() != b.size())
    return a == b;
  return std::equal(a.begin(), a.end(), b.begin(),
                    [](wchar_t x, wchar_t y) { return x == y || std::towlower(x) == std::towlower(y); });
}

// "*" or "Event" alone: selects every event.
bool IsTrivial(const Expr& e)
{
  return e.kind == Expr::Kind::Path && e.path.steps.size() == 1 && e.path.steps[0].kind == Step::Kind::Element &&
         e.path.steps[0].predicates.empty() && (e.path.steps[0].name.empty() || e.path.steps[0].name == L"Event");
}
} // namespace

Query::Query(Query&&) noexcept = default;
Query& Query::operator=(Query&&) noexcept = default;
Query::~Query() = default;

std::size_t Query::AddChannel(std::wstring_view path)
{
  const auto found = std::find_if(m_channels.begin(), m_channels.end(),
                                  [&](const std::wstring& known) { return SameChannel(known, path); });
  if (found != m_channels.end())
    return static_cast<std::size_t>(found - m_channels.begin());
  m_channels.emplace_back(path);
  return m_channels.size() - 1;
}

Query::Rule Query::MakeRule(std::size_t queryIndex, std::wstring_view path, bool suppress, std::wstring_view xpath)
{
  const std::wstring_view trimmedPath = Trim(path);
  if (trimmedPath.empty())
    throw QueryError("a Select or Suppress needs a Path");
  const std::wstring_view selection = Trim(xpath);
  if (selection.empty())
    throw QueryError("empty XPath");
  std::shared_ptr<const Expr> expr = ParseEventXPath(selection);
  // The channel is numbered once the whole Query has compiled (see AddQuery).
  return Rule{queryIndex, 0, suppress, std::move(expr), std::wstring(trimmedPath)};
}

void Query::AddQuery(std::vector<Rule> rules)
{
  for (Rule& rule : rules)
  {
    rule.channel = AddChannel(rule.path);
    m_rules.push_back(std::move(rule));
  }
}

// The rules of one <Query>; throws QueryError when any of them is malformed.
std::vector<Query::Rule> Query::ParseQueryElement(const pugi::xml_node& node, std::size_t queryIndex)
{
  if (std::strcmp(node.name(), "Query") != 0)
    throw QueryError(std::string("unexpected element <") + node.name() + "> in <QueryList>");
  const std::wstring queryPath = FromUtf8(node.attribute("Path").value());
  std::vector<Rule> rules;
  bool hasSelect = false;
  for (const pugi::xml_node& rule : node.children())
  {
    if (rule.type() != pugi::node_element)
      continue;
    const bool suppress = std::strcmp(rule.name(), "Suppress") == 0;
    if (!suppress && std::strcmp(rule.name(), "Select") != 0)
      throw QueryError(std::string("unexpected element <") + rule.name() + "> in <Query>");
    const pugi::xml_attribute path = rule.attribute("Path");
    rules.push_back(MakeRule(queryIndex, path ? FromUtf8(path.value()) : queryPath, suppress, ElementText(rule)));
    hasSelect = hasSelect || !suppress;
  }
  if (!hasSelect)
    throw QueryError("a <Query> needs at least one <Select>");
  return rules;
}

void Query::DropQueriesReading(std::size_t channel)
{
  std::vector<std::size_t> spoiled;
  for (const Rule& rule : m_rules)
    if (rule.channel == channel)
      spoiled.push_back(rule.queryIndex);
  m_rules.erase(std::remove_if(m_rules.begin(), m_rules.end(),
                               [&](const Rule& rule) {
                                 return std::find(spoiled.begin(), spoiled.end(), rule.queryIndex) != spoiled.end();
                               }),
                m_rules.end());
  Finish();
}

bool Query::Reads(std::size_t channel) const { return channel < m_groups.size() && !m_groups[channel].empty(); }

void Query::Finish()
{
  m_groups.assign(m_channels.size(), {});
  m_minRecordIds.assign(m_channels.size(), UINT64_MAX);
  std::vector<bool> selected(m_channels.size(), false);
  m_selectsAll.assign(m_channels.size(), false);
  for (const Rule& rule : m_rules)
  {
    auto& groups = m_groups[rule.channel];
    // Rules of one Query sit together: they are added in document order.
    if (groups.empty() || groups.back().front()->queryIndex != rule.queryIndex)
      groups.emplace_back();
    groups.back().push_back(&rule);
    if (!rule.suppress)
    {
      selected[rule.channel] = true;
      m_minRecordIds[rule.channel] = std::min(m_minRecordIds[rule.channel], MinRecordIdOf(*rule.expr));
    }
  }
  for (std::size_t c = 0; c < m_channels.size(); ++c)
    for (const auto& group : m_groups[c])
    {
      const bool anySuppress = std::any_of(group.begin(), group.end(), [](const Rule* r) { return r->suppress; });
      const bool anyTrivial =
        std::any_of(group.begin(), group.end(), [](const Rule* r) { return !r->suppress && IsTrivial(*r->expr); });
      if (anyTrivial && !anySuppress)
        m_selectsAll[c] = true;
    }
  // A channel that is only suppressed yields nothing: its bound stays at the maximum.
  for (std::size_t c = 0; c < m_channels.size(); ++c)
    if (!selected[c])
      m_minRecordIds[c] = UINT64_MAX;
}

Query Query::ParseXPath(std::wstring_view xpath, std::wstring_view channel)
{
  Query query;
  query.AddQuery({MakeRule(0, channel, false, xpath)});
  query.Finish();
  return query;
}

Query Query::Parse(std::wstring_view text, std::wstring_view defaultChannel, bool tolerateQueryErrors)
{
  const std::wstring_view trimmed = Trim(text);
  if (trimmed.empty())
    return ParseXPath(L"*", defaultChannel);
  if (trimmed.front() != L'<')
    return ParseXPath(trimmed, defaultChannel);

  const std::string utf8 = ToUtf8(trimmed);
  pugi::xml_document document;
  const pugi::xml_parse_result parsed = document.load_buffer(utf8.data(), utf8.size(), pugi::parse_default);
  if (!parsed)
    throw QueryError(std::string("malformed query XML: ") + parsed.description());
  const pugi::xml_node list = document.document_element();
  if (std::strcmp(list.name(), "QueryList") != 0)
    throw QueryError("the query XML must be a <QueryList>");

  Query query;
  std::size_t queryIndex = 0;
  std::size_t spoiled = 0;
  for (const pugi::xml_node& node : list.children())
  {
    if (node.type() != pugi::node_element)
      continue;
    try
    {
      query.AddQuery(ParseQueryElement(node, queryIndex));
    }
    catch (const QueryError&)
    {
      // Tolerating query errors, a malformed <Query> is left out and the others run.
      if (!tolerateQueryErrors)
        throw;
      ++spoiled;
    }
    ++queryIndex;
  }
  if (queryIndex == 0)
    throw QueryError("the <QueryList> holds no <Query>");
  if (spoiled == queryIndex)
    throw QueryError("no <Query> of the <QueryList> is well formed");
  query.Finish();
  return query;
}

std::uint64_t Query::MinRecordId(std::size_t channel) const
{
  return channel < m_minRecordIds.size() ? m_minRecordIds[channel] : UINT64_MAX;
}

bool Query::SelectsAll(std::size_t channel) const { return channel < m_selectsAll.size() && m_selectsAll[channel]; }

bool Query::Matches(std::size_t channel, const EventView& event, const EvalContext& context) const
{
  if (channel >= m_groups.size())
    return false;
  for (const auto& group : m_groups[channel])
  {
    bool selected = false;
    for (const Rule* rule : group)
      if (!rule->suppress && !selected)
        selected = SelectsEvent(*rule->expr, event, context);
    if (!selected)
      continue;
    const bool suppressed = std::any_of(group.begin(), group.end(), [&](const Rule* rule) {
      return rule->suppress && SelectsEvent(*rule->expr, event, context);
    });
    if (!suppressed)
      return true;
  }
  return false;
}
} // namespace evtx::query
