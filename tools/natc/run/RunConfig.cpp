#include "RunConfig.h"

#include "JsonWithLines.h"

#include "KeldaKernel/Strings.h"

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <limits>
#include <set>

namespace natc::run
{
namespace
{
using nlohmann::json;

// A value of the document with its pointer (for the line) and its readable path (for the text).
struct SAt
{
  const json& value;
  std::string pointer;
  std::string path;

  SAt Member(const std::string& key) const
  {
    return {value.at(key), pointer + "/" + EscapePointerToken(key), path.empty() ? key : path + "." + key};
  }
  SAt Element(std::size_t index) const
  {
    return {value.at(index), pointer + "/" + std::to_string(index), path + "[" + std::to_string(index) + "]"};
  }
};

const char* TypeName(const json& value)
{
  switch (value.type())
  {
  case json::value_t::null:
    return "null";
  case json::value_t::boolean:
    return "a boolean";
  case json::value_t::number_integer:
  case json::value_t::number_unsigned:
    return "an integer";
  case json::value_t::number_float:
    return "a number";
  case json::value_t::string:
    return "a string";
  case json::value_t::array:
    return "an array";
  case json::value_t::object:
    return "an object";
  default:
    return "a binary value";
  }
}

class CChecker
{
public:
  CChecker(const SJsonWithLines& document, std::string file) : m_document(document), m_file(std::move(file)) {}

  [[noreturn]] void Fail(const SAt& at, const std::string& reason) const
  {
    throw CConfigError(m_file, m_document.LineOf(at.pointer), (at.path.empty() ? "" : at.path + ": ") + reason);
  }

  // Every key of the object is one of `allowed` ("comment" is always allowed, for notes).
  void Object(const SAt& at, std::initializer_list<const char*> allowed) const
  {
    if (!at.value.is_object())
    {
      Fail(at, std::string("expected an object, found ") + TypeName(at.value));
    }
    for (const auto& item : at.value.items())
    {
      const std::string& key = item.key();
      const bool known = key == "comment" || std::any_of(allowed.begin(), allowed.end(),
                                                         [&](const char* name) { return key == name; });
      if (!known)
      {
        std::string expected;
        for (const char* name : allowed)
        {
          expected += expected.empty() ? "" : ", ";
          expected.append("\"").append(name).append("\"");
        }
        std::string reason = "unknown key \"";
        reason.append(key).append("\" (expected ").append(expected).append(")");
        Fail(at.Member(key), reason);
      }
    }
  }

  bool Has(const SAt& at, const char* key) const { return at.value.contains(key); }

  SAt Required(const SAt& at, const char* key) const
  {
    if (!Has(at, key))
    {
      Fail(at, std::string("missing \"") + key + "\"");
    }
    return at.Member(key);
  }

  std::string String(const SAt& at, bool allowEmpty) const
  {
    if (!at.value.is_string())
    {
      Fail(at, std::string("expected a string, found ") + TypeName(at.value));
    }
    std::string text = at.value.get<std::string>();
    if (!allowEmpty && text.empty())
    {
      Fail(at, "must not be empty");
    }
    return text;
  }

  std::wstring Text(const SAt& at, bool allowEmpty) const { return kelda::FromUtf8(String(at, allowEmpty)); }

  std::int64_t Integer(const SAt& at, std::int64_t lowest, std::int64_t highest) const
  {
    if (!at.value.is_number_integer())
    {
      Fail(at, std::string("expected an integer, found ") + TypeName(at.value));
    }
    if (at.value.is_number_unsigned() && at.value.get<std::uint64_t>() > static_cast<std::uint64_t>(highest))
    {
      Fail(at, "must be at most " + std::to_string(highest));
    }
    const auto number = at.value.get<std::int64_t>();
    if (number < lowest || number > highest)
    {
      Fail(at, "must be between " + std::to_string(lowest) + " and " + std::to_string(highest));
    }
    return number;
  }

  double Number(const SAt& at) const
  {
    if (!at.value.is_number())
    {
      Fail(at, std::string("expected a number, found ") + TypeName(at.value));
    }
    return at.value.get<double>();
  }

  bool Boolean(const SAt& at) const
  {
    if (!at.value.is_boolean())
    {
      Fail(at, std::string("expected true or false, found ") + TypeName(at.value));
    }
    return at.value.get<bool>();
  }

  const json& Array(const SAt& at, bool allowEmpty) const
  {
    if (!at.value.is_array())
    {
      Fail(at, std::string("expected an array, found ") + TypeName(at.value));
    }
    if (!allowEmpty && at.value.empty())
    {
      Fail(at, "must not be empty");
    }
    return at.value;
  }

private:
  const SJsonWithLines& m_document;
  std::string m_file;
};

collector::ni::FieldValue TargetValue(const CChecker& check, const SAt& at)
{
  if (at.value.is_string())
  {
    return kelda::FromUtf8(at.value.get<std::string>());
  }
  if (at.value.is_number_integer())
  {
    return static_cast<__int64>(check.Integer(at, std::numeric_limits<std::int64_t>::min(),
                                              std::numeric_limits<std::int64_t>::max()));
  }
  if (at.value.is_number_float())
  {
    return at.value.get<double>();
  }
  check.Fail(at, std::string("expected a string or a number, found ") + TypeName(at.value));
}

void ReadEvents(const CChecker& check, const SAt& at, SCollectionConfig& collection)
{
  const SAt filters = check.Required(at, "filters");
  check.Array(filters, false);
  for (std::size_t i = 0; i < filters.value.size(); ++i)
  {
    const SAt entry = filters.Element(i);
    check.Object(entry, {"path", "provider", "timeDiff", "eventIds"});
    collector::ni::win_events::SFilter filter;
    filter.Path = check.Text(check.Required(entry, "path"), false);
    if (check.Has(entry, "provider"))
    {
      filter.Provider = check.Text(entry.Member("provider"), true);
    }
    if (check.Has(entry, "timeDiff"))
    {
      filter.TimeDiff = check.Integer(entry.Member("timeDiff"), std::numeric_limits<std::int64_t>::min(),
                                      std::numeric_limits<std::int64_t>::max());
    }
    if (check.Has(entry, "eventIds"))
    {
      const SAt ids = entry.Member("eventIds");
      check.Array(ids, true);
      for (std::size_t k = 0; k < ids.value.size(); ++k)
      {
        filter.EventIds.push_back(
          static_cast<std::uint32_t>(check.Integer(ids.Element(k), 0, std::numeric_limits<std::uint32_t>::max())));
      }
    }
    collection.eventFilters.push_back(std::move(filter));
  }
}

void ReadProperties(const CChecker& check, const SAt& at, SCollectionConfig& collection)
{
  const SAt filter = check.Required(at, "filter");
  check.Object(filter, {"namespace", "class", "condition", "properties"});
  collection.miFilter.Namespace = check.Text(check.Required(filter, "namespace"), false);
  collection.miFilter.Class = check.Text(check.Required(filter, "class"), false);
  if (check.Has(filter, "condition"))
  {
    collection.miFilter.Condition = check.Text(filter.Member("condition"), true);
  }
  if (check.Has(filter, "properties"))
  {
    const SAt properties = filter.Member("properties");
    check.Array(properties, true);
    for (std::size_t i = 0; i < properties.value.size(); ++i)
    {
      collection.miFilter.Properties.push_back(check.Text(properties.Element(i), false));
    }
  }
}

void ReadCounters(const CChecker& check, const SAt& at, SCollectionConfig& collection)
{
  const SAt counters = check.Required(at, "counters");
  check.Array(counters, false);
  for (std::size_t i = 0; i < counters.value.size(); ++i)
  {
    const SAt entry = counters.Element(i);
    check.Object(entry, {"class", "counter", "factor", "target", "flag"});
    collector::ni::performance::IMiPerfCollectionInit::CounterFilter counter;
    counter.ClassName = check.Text(check.Required(entry, "class"), false);
    counter.CounterName = check.Text(check.Required(entry, "counter"), false);
    counter.TargetValue = tstring();
    if (check.Has(entry, "factor"))
    {
      counter.Factor = check.Number(entry.Member("factor"));
    }
    if (check.Has(entry, "target"))
    {
      counter.TargetValue = TargetValue(check, entry.Member("target"));
    }
    if (check.Has(entry, "flag"))
    {
      counter.Flag = check.Boolean(entry.Member("flag"));
    }
    collection.counters.push_back(std::move(counter));
  }
}

std::string Lower(std::string text)
{
  std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
  return text;
}

SCollectionConfig ReadCollection(const CChecker& check, const SAt& at, int line)
{
  SCollectionConfig collection;
  collection.line = line;
  if (!at.value.is_object())
  {
    check.Object(at, {});
  }
  const std::string type = check.String(check.Required(at, "type"), false);
  if (type == "WindowsEvents")
  {
    check.Object(at, {"type", "period", "filters"});
    ReadEvents(check, at, collection);
  }
  else if (type == "MiProp")
  {
    check.Object(at, {"type", "period", "filter"});
    ReadProperties(check, at, collection);
  }
  else if (type == "MiPerf")
  {
    check.Object(at, {"type", "period", "counters"});
    ReadCounters(check, at, collection);
  }
  else
  {
    std::string hint;
    for (const char* known : {"WindowsEvents", "MiProp", "MiPerf"})
    {
      if (Lower(type) == Lower(known))
      {
        hint = std::string("; did you mean \"") + known + "\"? (type names are case-sensitive)";
      }
    }
    check.Fail(at.Member("type"), "unknown collection type \"" + type +
                                    "\" (expected \"WindowsEvents\", \"MiProp\" or \"MiPerf\")" + hint);
  }
  collection.type = kelda::FromUtf8(type);
  if (check.Has(at, "period"))
  {
    collection.period = static_cast<int>(check.Integer(at.Member("period"), 1, std::numeric_limits<int>::max()));
  }
  return collection;
}

// A string is the password itself; {"env": NAME} or {"file": PATH} says where to find it.
void ReadPassword(const CChecker& check, const SAt& at, SUserConfig& user, int line)
{
  SPasswordSource& source = user.passwordSource;
  source.line = line;
  source.path = at.path;
  if (at.value.is_string())
  {
    user.password = check.Text(at, true);
    return;
  }
  if (!at.value.is_object())
  {
    check.Fail(at, std::string("expected a string or {\"env\": NAME} or {\"file\": PATH}, found ") +
                     TypeName(at.value));
  }
  check.Object(at, {"env", "file"});
  if (check.Has(at, "env") == check.Has(at, "file"))
  {
    check.Fail(at, "expected exactly one of \"env\" and \"file\"");
  }
  const bool environment = check.Has(at, "env");
  source.kind = environment ? SPasswordSource::EKind::Environment : SPasswordSource::EKind::File;
  source.name = check.String(at.Member(environment ? "env" : "file"), false);
}

std::string UniqueId(const CChecker& check, const SAt& entry, std::set<std::string>& seen, const char* kind)
{
  const SAt idAt = check.Required(entry, "id");
  std::string id = check.String(idAt, false);
  if (!seen.insert(id).second)
  {
    check.Fail(idAt, std::string("duplicate ") + kind + " id \"" + id + "\"");
  }
  return id;
}
} // namespace

namespace
{
std::string Joined(const std::vector<SConfigProblem>& problems)
{
  std::string text;
  for (const auto& problem : problems)
  {
    text += (text.empty() ? "" : "\n") + problem.Text();
  }
  return text;
}
} // namespace

CConfigError::CConfigError(std::string file, int line, std::string reason)
  : CConfigError(std::vector<SConfigProblem>{{std::move(file), line, std::move(reason)}})
{
}

CConfigError::CConfigError(std::vector<SConfigProblem> problems)
  : std::runtime_error(Joined(problems)), m_problems(std::move(problems))
{
  if (m_problems.empty())
  {
    m_problems.push_back({"", 0, "no problem given"});
  }
}

SRunConfig ParseRunConfig(std::string_view text, const std::string& fileName)
{
  std::vector<SConfigProblem> problems;
  SRunConfig config = ParseRunConfig(text, fileName, problems);
  if (!problems.empty())
  {
    throw CConfigError(std::move(problems));
  }
  return config;
}

SRunConfig ParseRunConfig(std::string_view text, const std::string& fileName, std::vector<SConfigProblem>& problems)
{
  SJsonWithLines document;
  try
  {
    document = ParseJsonWithLines(text);
  }
  catch (const CJsonSyntaxError& error)
  {
    throw CConfigError(fileName, error.Line(),
                       "column " + std::to_string(error.Column()) + ": not valid JSON: " + error.what());
  }
  const CChecker check(document, fileName);
  const SAt root{document.value, "", ""};
  check.Object(root, {"hosts", "users", "tasks"});

  // Each entry is checked on its own, so that one run lists the problems of every entry.
  const auto collect = [&problems](const auto& read) {
    try
    {
      read();
    }
    catch (const CConfigError& error)
    {
      problems.insert(problems.end(), error.Problems().begin(), error.Problems().end());
    }
  };

  SRunConfig config;
  std::set<std::string> hostIds;
  collect([&] {
    const SAt hosts = check.Required(root, "hosts");
    check.Array(hosts, false);
    for (std::size_t i = 0; i < hosts.value.size(); ++i)
    {
      collect([&] {
        const SAt entry = hosts.Element(i);
        check.Object(entry, {"id", "name"});
        SHostConfig host;
        host.id = UniqueId(check, entry, hostIds, "host");
        host.name = check.Text(check.Required(entry, "name"), false);
        config.hosts.push_back(std::move(host));
      });
    }
  });

  std::set<std::string> userIds;
  collect([&] {
    if (!check.Has(root, "users"))
    {
      return;
    }
    const SAt users = root.Member("users");
    check.Array(users, true);
    for (std::size_t i = 0; i < users.value.size(); ++i)
    {
      collect([&] {
        const SAt entry = users.Element(i);
        check.Object(entry, {"id", "name", "password"});
        SUserConfig user;
        user.id = UniqueId(check, entry, userIds, "user");
        user.name = check.Text(check.Required(entry, "name"), true);
        if (check.Has(entry, "password"))
        {
          const SAt password = entry.Member("password");
          ReadPassword(check, password, user, document.LineOf(password.pointer));
        }
        config.users.push_back(std::move(user));
      });
    }
  });

  collect([&] {
    const SAt tasks = check.Required(root, "tasks");
    check.Array(tasks, false);
    for (std::size_t i = 0; i < tasks.value.size(); ++i)
    {
      collect([&] {
        const SAt entry = tasks.Element(i);
        check.Object(entry, {"name", "host", "user", "collections"});
        STaskConfig task;
        task.line = document.LineOf(entry.pointer);
        task.name = check.Has(entry, "name") ? check.Text(entry.Member("name"), true) : L"task" + std::to_wstring(i);
        collect([&] {
          const SAt host = check.Required(entry, "host");
          task.host = check.String(host, false);
          if (hostIds.count(task.host) == 0)
          {
            check.Fail(host, "no host with id \"" + task.host + "\" in \"hosts\"");
          }
        });
        collect([&] {
          if (check.Has(entry, "user"))
          {
            const SAt user = entry.Member("user");
            task.user = check.String(user, false);
            if (userIds.count(task.user) == 0)
            {
              check.Fail(user, "no user with id \"" + task.user + "\" in \"users\"");
            }
          }
        });
        const SAt collections = check.Required(entry, "collections");
        check.Array(collections, false);
        for (std::size_t k = 0; k < collections.value.size(); ++k)
        {
          collect([&] {
            const SAt collection = collections.Element(k);
            task.collections.push_back(ReadCollection(check, collection, document.LineOf(collection.pointer)));
            task.collections.back().path = collection.path;
          });
        }
        config.tasks.push_back(std::move(task));
      });
    }
  });
  return config;
}
} // namespace natc::run
