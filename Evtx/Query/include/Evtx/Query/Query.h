// A compiled event query: a structured query list (<QueryList><Query><Select Path=...>) or a bare
// XPath for one channel, in the XPath subset that the Windows Event Log accepts. The Event Log API
// compiles the text once per EvtQuery, asks which channels to read and, per channel, the lowest
// EventRecordID any Select can match (so that older chunks are skipped), then tests each event.
//
//   auto query = evtx::query::Query::Parse(text, L"");        // throws QueryError when malformed
//   for (size_t c = 0; c < query.Channels().size(); ++c)
//     ... skip records below query.MinRecordId(c); query.Matches(c, view, now) ...
#pragma once

#include "Evtx/Query/EventView.h"

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace pugi
{
class xml_node;
}

namespace evtx::query
{
struct Expr;

// A malformed query; the Event Log API reports it as ERROR_EVT_INVALID_QUERY.
class QueryError : public std::runtime_error
{
public:
  using std::runtime_error::runtime_error;
};

// What a test may depend on besides the event: the current time, for timediff().
struct EvalContext
{
  // Now, in 100-ns ticks since 1601-01-01 UTC (FILETIME).
  std::uint64_t nowFileTime = 0;
};

// The current time as FILETIME ticks, from the system clock.
std::uint64_t CurrentFileTime();

class Query
{
public:
  // A query list when the text starts with '<', else an XPath over defaultChannel (which must then
  // not be empty). An empty text selects every event of defaultChannel. With tolerateQueryErrors
  // (EvtQueryTolerateQueryErrors) a malformed <Query> of a list is left out and the others kept.
  static Query Parse(std::wstring_view text, std::wstring_view defaultChannel, bool tolerateQueryErrors = false);
  // A single XPath expression; exposed for tests and tools.
  static Query ParseXPath(std::wstring_view xpath, std::wstring_view channel);

  Query(Query&&) noexcept;
  Query& operator=(Query&&) noexcept;
  ~Query();

  // Channel paths named by the query, in first-appearance order, without duplicates.
  const std::vector<std::wstring>& Channels() const { return m_channels; }
  // No event of this channel below this EventRecordID can match (0 when there is no bound).
  std::uint64_t MinRecordId(std::size_t channel) const;
  // True when every event of the channel matches (a plain "*" Select with no Suppress), so that
  // callers need not decode events to test them.
  bool SelectsAll(std::size_t channel) const;
  // Leaves out every Query that reads the channel (a channel that cannot be opened, when query
  // errors are tolerated); the other Queries, on any channel, still run.
  void DropQueriesReading(std::size_t channel);
  // False when no Query is left that reads the channel.
  bool Reads(std::size_t channel) const;
  // True when some Query selects the event and no Suppress of that Query removes it.
  bool Matches(std::size_t channel, const EventView& event, const EvalContext& context) const;

private:
  struct Rule
  {
    std::size_t queryIndex;
    std::size_t channel;
    bool suppress;
    std::shared_ptr<const Expr> expr;
    std::wstring path;
  };

  Query() = default;
  static Rule MakeRule(std::size_t queryIndex, std::wstring_view path, bool suppress, std::wstring_view xpath);
  static std::vector<Rule> ParseQueryElement(const pugi::xml_node& node, std::size_t queryIndex);
  std::size_t AddChannel(std::wstring_view path);
  void AddQuery(std::vector<Rule> rules);
  void Finish();

  std::vector<std::wstring> m_channels;
  std::vector<Rule> m_rules;
  // Rules by channel, grouped by their Query, and the record-number bound of each channel.
  std::vector<std::vector<std::vector<const Rule*>>> m_groups;
  std::vector<std::uint64_t> m_minRecordIds;
  std::vector<bool> m_selectsAll;
};
} // namespace evtx::query
