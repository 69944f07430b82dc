// natc evtx: dumps and describes .evtx files with our own reader.
//   natc evtx dump FILE|DIR... [--query XPATH|QUERYLIST] [--format xml|jsonl] [--threads N]
//   natc evtx info FILE
// xml prints each event's XML on one line (line breaks in values as character references, and the
// control characters XML 1.0 forbids as their Unicode control pictures);
// jsonl prints one object per event with its System values and EventData texts. --threads N
// decodes chunks on N threads; the output is the same, in the same order.
#include "CommandRegistry.h"
#include "common/Arguments.h"

#include "Platform/Windows.h"

#include "Evtx/Event.h"
#include "Evtx/File.h"
#include "Evtx/ValueText.h"

#if __has_include("Evtx/Query/Query.h")
#  include "Evtx/Query/Query.h"
#  include "Evtx/Query/TreeEventView.h"
#  define NATC_HAVE_EVTX_QUERY 1
#endif

#include <algorithm>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <map>
#include <mutex>
#include <thread>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace
{
// Buffered stdout: events are appended to one string and written in large blocks.
class Output
{
public:
  ~Output() { Flush(); }
  std::string& Buffer() { return buffer_; }
  // Writes a large block as it is, after what the buffer holds: no copy into the buffer.
  void WriteBlock(std::string_view block)
  {
    Flush();
    std::fwrite(block.data(), 1, block.size(), stdout);
  }
  // A chunk's text (about 100 KB) goes out while it is still in the core's cache; a block of
  // several chunks would be written back to memory before it is copied out.
  void MaybeFlush()
  {
    if (buffer_.size() >= (1u << 16))
      Flush();
  }
  void Flush()
  {
    if (!buffer_.empty())
      std::fwrite(buffer_.data(), 1, buffer_.size(), stdout);
    buffer_.clear();
  }

private:
  std::string buffer_;
};

void AppendJsonString(std::string& out, std::string_view text)
{
  out += '"';
  for (const char c : text)
  {
    switch (c)
    {
    case '"': out += "\\\""; break;
    case '\\': out += "\\\\"; break;
    case '\n': out += "\\n"; break;
    case '\r': out += "\\r"; break;
    case '\t': out += "\\t"; break;
    default:
      if (static_cast<unsigned char>(c) < 0x20)
      {
        char escaped[8];
        std::snprintf(escaped, sizeof escaped, "\\u%04x", c);
        out += escaped;
      }
      else
      {
        out += c;
      }
    }
  }
  out += '"';
}

template <class T>
void AppendJsonNumber(std::string& out, const std::optional<T>& value)
{
  if (value)
    out += std::to_string(*value);
  else
    out += "null";
}

void AppendJsonValue(std::string& out, const evtx::Value& value)
{
  std::string text;
  evtx::AppendValueText(text, value);
  AppendJsonString(out, text);
}

void AppendJsonEvent(std::string& out, const evtx::EventTree& tree, const evtx::Record& record)
{
  evtx::SystemValues sys;
  tree.System(sys);
  out += "{\"record_id\":";
  out += std::to_string(sys.recordId.value_or(record.id));
  out += ",\"event_id\":";
  AppendJsonNumber(out, sys.eventId);
  out += ",\"qualifiers\":";
  AppendJsonNumber(out, sys.qualifiers);
  out += ",\"level\":";
  AppendJsonNumber(out, sys.level);
  out += ",\"provider\":";
  AppendJsonValue(out, sys.providerName);
  out += ",\"channel\":";
  AppendJsonValue(out, sys.channel);
  out += ",\"computer\":";
  AppendJsonValue(out, sys.computer);
  out += ",\"created\":";
  if (sys.timeCreated)
  {
    std::string time;
    evtx::AppendFileTime(time, *sys.timeCreated);
    AppendJsonString(out, time);
  }
  else
  {
    out += "null";
  }
  out += ",\"user_sid\":";
  AppendJsonValue(out, sys.userId);
  out += ",\"data\":[";
  const std::uint32_t eventData = tree.EventData();
  bool first = true;
  for (std::uint32_t c = tree.FirstChild(eventData); c != evtx::kNoNode; c = tree[c].nextSibling)
  {
    if (tree[c].kind != evtx::NodeKind::Element)
      continue;
    if (!first)
      out += ',';
    first = false;
    AppendJsonString(out, tree.Text(c));
  }
  out += "]}\n";
}

#ifdef NATC_HAVE_EVTX_QUERY
// The text of the event's System/Channel element, empty when it has none.
void EventChannel(const evtx::query::EventView& view, std::wstring& channel)
{
  channel.clear();
  const auto child = [&](evtx::query::EventView::Node parent, std::wstring_view name) {
    for (auto node = parent ? view.FirstChild(parent) : nullptr; node; node = view.NextSibling(node))
      if (view.NameIs(node, name))
        return node;
    return evtx::query::EventView::Node{};
  };
  if (const auto node = child(child(view.Root(), L"System"), L"Channel"))
    view.Text(node, channel);
}

// The query's index of the event's channel, compared without case as Windows compares channel
// paths; else that of "*", the channel of a bare XPath; else the number of channels.
std::size_t ChannelIndex(const evtx::query::Query& query, std::wstring_view channel)
{
  const auto& channels = query.Channels();
  const auto named = [&](std::wstring_view wanted) {
    return std::find_if(channels.begin(), channels.end(), [&](const std::wstring& name) {
      return CompareStringOrdinal(name.data(), static_cast<int>(name.size()), wanted.data(),
                                  static_cast<int>(wanted.size()), TRUE) == CSTR_EQUAL;
    });
  };
  auto found = named(channel);
  if (found == channels.end())
    found = named(L"*");
  return static_cast<std::size_t>(found - channels.begin());
}
#endif

struct DumpOptions
{
  bool jsonl = false;
  std::string query;
  unsigned threads = 1;
};

// What one reader needs to dump chunks: its own File (one per thread) and its scratch space.
class ChunkDumper
{
public:
  ChunkDumper(const std::string& path, const DumpOptions& options) : path_(path), options_(options)
  {
    // One event per line, each a well-formed XML line (line breaks as references, the controls
    // XML forbids as control pictures).
    render_.escapeLineBreaks = true;
#ifdef NATC_HAVE_EVTX_QUERY
    // A query list applies to the events of the channels it names; a bare XPath, whose channel
    // is "*", to every event.
    if (!options.query.empty())
      query_.emplace(evtx::query::Query::Parse(evtx::Utf8ToWide(options.query), L"*"));
#endif
  }

  evtx::Status Open() { return file_.Open(path_); }
  std::uint32_t ChunkCount() const { return file_.ChunkCount(); }

  // Appends the events of chunk `index` to out and its messages to errors; returns the number
  // of records that could not be read.
  int Dump(std::uint32_t index, std::string& out, std::string& errors)
  {
    std::shared_ptr<evtx::Chunk> chunk;
    const evtx::Status loaded = file_.LoadChunk(index, chunk);
    if (loaded == evtx::Status::Empty)
      return 0;
    if (loaded != evtx::Status::Ok)
    {
      errors += "natc evtx: " + path_ + ": chunk " + std::to_string(index) + " skipped: " +
                evtx::StatusText(loaded) + "\n";
      return 0;
    }
    int failures = 0;
    const auto fail = [&](const evtx::Record& record, evtx::Status status) {
      errors += "natc evtx: " + path_ + ": record " + std::to_string(record.id) + ": " + evtx::StatusText(status) +
                "\n";
      ++failures;
    };
    const bool needTree = options_.jsonl || !options_.query.empty();
    if (!needTree)
    {
      failed_.clear();
      chunk->RenderXmlLines(out, render_, failed_);
      for (const auto& [record, status] : failed_)
        fail(record, status);
      return failures;
    }
    for (const evtx::Record& record : chunk->Records())
    {
      if (needTree)
      {
        const evtx::Status decoded = chunk->Decode(record, tree_);
        if (decoded != evtx::Status::Ok)
        {
          fail(record, decoded);
          continue;
        }
#ifdef NATC_HAVE_EVTX_QUERY
        if (query_)
        {
          const evtx::query::TreeEventView view(tree_);
          EventChannel(view, channel_);
          const std::size_t index = ChannelIndex(*query_, channel_);
          if (index >= query_->Channels().size() || !query_->Matches(index, view, context_))
            continue;
        }
#endif
      }
      if (options_.jsonl)
      {
        AppendJsonEvent(out, tree_, record);
        continue;
      }
      const evtx::Status rendered = chunk->RenderXml(record, out, render_);
      if (rendered != evtx::Status::Ok)
      {
        fail(record, rendered);
        continue;
      }
      out += '\n';
    }
    return failures;
  }

private:
  std::string path_;
  const DumpOptions& options_;
  evtx::File file_;
  evtx::EventTree tree_;
  evtx::RenderOptions render_;
  std::vector<std::pair<evtx::Record, evtx::Status>> failed_;
#ifdef NATC_HAVE_EVTX_QUERY
  std::optional<evtx::query::Query> query_;
  const evtx::query::EvalContext context_{evtx::query::CurrentFileTime()};
  std::wstring channel_;
#endif
};

void WriteErrors(const std::string& errors)
{
  if (!errors.empty())
    std::fwrite(errors.data(), 1, errors.size(), stderr);
}

// Chunks decode on `threads` readers, each with its own File; the output leaves in file order.
// The thread that writes is one of the readers: it decodes whenever the next run to write is
// not ready, so that N threads keep N cores busy instead of N + 1 threads sharing them.
// Readers take runs of kChunksPerTask chunks, so that threads meet once per run rather than
// once per chunk. Memory stays bounded: no run starts more than `window` runs ahead of the one
// being written, and the buffers of written runs go back to the readers.
int DumpInParallel(ChunkDumper& writerDumper, const std::string& path, const DumpOptions& options,
                   std::uint32_t chunkCount, Output& output)
{
  constexpr std::uint32_t kChunksPerTask = 4;
  struct Done
  {
    std::string text;
    // A chunk's messages, with where its events end in text: they keep their place.
    std::vector<std::pair<std::size_t, std::string>> errors;
    int failures = 0;
  };
  const std::uint32_t taskCount = (chunkCount + kChunksPerTask - 1) / kChunksPerTask;
  const std::uint32_t window = options.threads * 2;
  std::mutex lock;
  std::condition_variable changed;
  std::map<std::uint32_t, Done> done;
  std::vector<Done> spare;
  std::uint32_t next = 0;
  std::uint32_t written = 0;
  bool stop = false;
  // The first reader failure (a file that cannot be opened, or an exception).
  std::string readerError;

  // Takes the next run if the window lets one start; called with `lock` held. Buffers come back
  // from the writer emptied, their capacity kept: a run's text is written without growing a
  // new string.
  const auto claim = [&](std::uint32_t& task, Done& run) {
    if (stop || next >= taskCount || next >= written + window)
      return false;
    task = next++;
    if (!spare.empty())
    {
      run = std::move(spare.back());
      spare.pop_back();
    }
    return true;
  };
  const auto decode = [&](ChunkDumper& dumper, std::uint32_t task, Done& run, std::string& errors) {
    const std::uint32_t first = task * kChunksPerTask;
    for (std::uint32_t index = first; index < std::min(chunkCount, first + kChunksPerTask); ++index)
    {
      errors.clear();
      run.failures += dumper.Dump(index, run.text, errors);
      if (!errors.empty())
        run.errors.emplace_back(run.text.size(), errors);
    }
  };

  // A reader that fails stops the dump; its message, the first one, is reported.
  const auto fail = [&](const char* message) {
    const std::lock_guard held(lock);
    if (readerError.empty())
      readerError = message;
    stop = true;
    changed.notify_all();
  };
  const auto readRuns = [&] {
    ChunkDumper dumper(path, options);
    if (const evtx::Status status = dumper.Open(); status != evtx::Status::Ok)
    {
      fail(evtx::StatusText(status));
      return;
    }
    std::string errors;
    for (;;)
    {
      std::uint32_t task = 0;
      Done run;
      {
        std::unique_lock held(lock);
        changed.wait(held, [&] { return stop || next >= taskCount || next < written + window; });
        if (!claim(task, run))
          return;
      }
      decode(dumper, task, run, errors);
      const std::lock_guard held(lock);
      done.emplace(task, std::move(run));
      changed.notify_all();
    }
  };
  // A reader that throws (out of memory) stops the dump, not the process.
  const auto read = [&] {
    try
    {
      readRuns();
    }
    catch (const std::exception& error)
    {
      fail(error.what());
    }
  };

  const auto stopReaders = [&] {
    const std::lock_guard held(lock);
    stop = true;
    changed.notify_all();
  };
  std::vector<std::jthread> readers;
  // Declared after the readers, so that on every way out, an exception included, the readers
  // are told to stop before they are joined.
  struct StopFirst
  {
    const decltype(stopReaders)& stop;
    ~StopFirst() { stop(); }
  } const stopFirst{stopReaders};
  readers.reserve(options.threads - 1);
  for (unsigned i = 1; i < options.threads; ++i)
    readers.emplace_back(read);

  int failures = 0;
  std::string writerErrors;
  for (std::uint32_t task = 0; task < taskCount; ++task)
  {
    Done run;
    {
      std::unique_lock held(lock);
      for (;;)
      {
        if (stop)
          break;
        if (const auto found = done.find(task); found != done.end())
        {
          run = std::move(found->second);
          done.erase(found);
          written = task + 1;
          changed.notify_all();
          break;
        }
        std::uint32_t mine = 0;
        Done work;
        if (claim(mine, work))
        {
          held.unlock();
          decode(writerDumper, mine, work, writerErrors);
          held.lock();
          done.emplace(mine, std::move(work));
          continue;
        }
        changed.wait(held);
      }
      if (stop)
        break;
    }
    std::size_t from = 0;
    for (const auto& [end, errors] : run.errors)
    {
      output.WriteBlock(std::string_view(run.text).substr(from, end - from));
      // Messages keep their place among the events.
      std::fflush(stdout);
      WriteErrors(errors);
      from = end;
    }
    output.WriteBlock(std::string_view(run.text).substr(from));
    failures += run.failures;
    run.text.clear();
    run.errors.clear();
    run.failures = 0;
    const std::lock_guard held(lock);
    spare.push_back(std::move(run));
  }
  stopReaders();
  readers.clear();
  if (!readerError.empty())
  {
    std::fprintf(stderr, "natc evtx: %s: %s\n", path.c_str(), readerError.c_str());
    return 1;
  }
  return failures == 0 ? 0 : 1;
}

int DumpFile(const std::string& path, const DumpOptions& options, Output& output)
{
  ChunkDumper dumper(path, options);
  const evtx::Status status = dumper.Open();
  if (status != evtx::Status::Ok)
  {
    std::fprintf(stderr, "natc evtx: %s: %s\n", path.c_str(), evtx::StatusText(status));
    return 1;
  }
  if (options.threads > 1 && dumper.ChunkCount() > 1)
    return DumpInParallel(dumper, path, options, dumper.ChunkCount(), output);
  int failures = 0;
  std::string errors;
  for (std::uint32_t i = 0; i < dumper.ChunkCount(); ++i)
  {
    errors.clear();
    failures += dumper.Dump(i, output.Buffer(), errors);
    WriteErrors(errors);
    output.MaybeFlush();
  }
  return failures == 0 ? 0 : 1;
}

// Why the dump's command line stopped at `argument`.
std::string DumpArgumentError(const std::string& argument)
{
  if (argument == "--format" || argument == "--query" || argument == "--threads")
    return argument + " needs a value";
  return natc::UnknownOption(argument);
}

int Dump(const std::vector<std::string>& args)
{
  DumpOptions options;
  std::vector<std::string> targets;
  for (std::size_t i = 0; i < args.size(); ++i)
  {
    if (args[i] == "--format" && i + 1 < args.size())
    {
      const std::string& format = args[++i];
      if (format != "xml" && format != "jsonl")
        throw natc::CUsageError("--format must be xml or jsonl");
      options.jsonl = format == "jsonl";
    }
    else if (args[i] == "--query" && i + 1 < args.size())
    {
      options.query = args[++i];
    }
    else if (args[i] == "--threads" && i + 1 < args.size())
    {
      options.threads = static_cast<unsigned>(natc::ParseNumber("--threads", args[++i], 1, 256));
    }
    else if (args[i].rfind("--", 0) != 0)
    {
      targets.push_back(args[i]);
    }
    else
    {
      throw natc::CUsageError(DumpArgumentError(args[i]));
    }
  }
  if (targets.empty())
    throw natc::CUsageError("evtx dump needs a FILE or DIR");
#ifndef NATC_HAVE_EVTX_QUERY
  if (!options.query.empty())
  {
    std::fprintf(stderr, "natc evtx: --query needs the evtx_query library, which this build lacks\n");
    return 2;
  }
#endif
  // Files in the order given; a directory's .evtx files in name order.
  std::vector<std::string> files;
  for (const std::string& target : targets)
  {
    if (std::filesystem::is_directory(target))
    {
      std::vector<std::string> inDirectory;
      for (const auto& entry : std::filesystem::directory_iterator(target))
        if (entry.is_regular_file() && entry.path().extension() == ".evtx")
          inDirectory.push_back(entry.path().string());
      std::sort(inDirectory.begin(), inDirectory.end());
      files.insert(files.end(), inDirectory.begin(), inDirectory.end());
    }
    else
    {
      files.push_back(target);
    }
  }
  Output output;
  int result = 0;
  for (const auto& file : files)
    result |= DumpFile(file, options, output);
  return result;
}

int Info(const std::vector<std::string>& args)
{
  if (args.size() != 1)
    throw natc::CUsageError(args.empty() ? "evtx info needs a FILE" : "evtx info takes one FILE");
  if (args[0].rfind('-', 0) == 0)
    throw natc::CUsageError(natc::UnknownOption(args[0]));
  evtx::File file;
  const evtx::Status status = file.Open(args[0]);
  if (status != evtx::Status::Ok)
  {
    std::fprintf(stderr, "natc evtx: %s: %s\n", args[0].c_str(), evtx::StatusText(status));
    return 1;
  }
  const evtx::FileHeader& h = file.Header();
  std::printf("file: %s\nsize: %llu\nversion: %u.%u\nheader checksum: %s\n"
              "first chunk: %llu\nlast chunk: %llu\nnext record id: %llu\nchunks in header: %u\n"
              "flags: 0x%x%s%s\nchunk slots: %u\n",
              args[0].c_str(), static_cast<unsigned long long>(file.Size()), h.majorVersion,
              h.minorVersion, h.checksumOk ? "ok" : "BAD",
              static_cast<unsigned long long>(h.firstChunk), static_cast<unsigned long long>(h.lastChunk),
              static_cast<unsigned long long>(h.nextRecordId), h.chunkCount, h.flags,
              (h.flags & 1) ? " dirty" : "", (h.flags & 2) ? " full" : "", file.ChunkCount());
  unsigned used = 0, empty = 0, damaged = 0;
  unsigned long long records = 0;
  for (std::uint32_t i = 0; i < file.ChunkCount(); ++i)
  {
    std::shared_ptr<evtx::Chunk> chunk;
    const evtx::Status loaded = file.LoadChunk(i, chunk);
    if (loaded == evtx::Status::Empty)
    {
      ++empty;
      continue;
    }
    if (loaded != evtx::Status::Ok)
    {
      ++damaged;
      std::printf("chunk %u: damaged: %s\n", i, evtx::StatusText(loaded));
      continue;
    }
    ++used;
    records += chunk->Records().size();
    const evtx::ChunkHeader& c = chunk->Header();
    std::printf("chunk %u: records %llu-%llu, %zu read%s%s%s\n", i,
                static_cast<unsigned long long>(c.firstRecordId),
                static_cast<unsigned long long>(c.lastRecordId), chunk->Records().size(),
                chunk->HeaderChecksumOk() ? "" : ", header checksum BAD",
                chunk->RecordsChecksumOk() ? "" : ", records checksum BAD",
                chunk->RecordsTruncated() ? ", record walk stopped early" : "");
  }
  std::printf("chunks used: %u\nchunks empty: %u\nchunks damaged: %u\nrecords: %llu\n", used, empty,
              damaged, records);
  return 0;
}

int RunEvtx(const std::vector<std::string>& args)
{
  if (args.empty())
    throw natc::CUsageError("evtx needs a sub-command: dump or info");
  const std::vector<std::string> rest(args.begin() + 1, args.end());
  if (args[0] == "dump")
    return Dump(rest);
  if (args[0] == "info")
    return Info(rest);
  throw natc::CUsageError(args[0].rfind('-', 0) == 0 ? natc::UnknownOption(args[0])
                                                    : "unknown evtx command '" + args[0] + "' (dump, info)");
}
} // namespace

static NatcCommand evtxCommand{
  "evtx", "read .evtx files: dump, info",
  "usage: natc evtx dump FILE|DIR... [--query XPATH|QUERYLIST] [--format xml|jsonl] [--threads N]\n"
  "       natc evtx info FILE\n"
  "dump prints every event of the files, one per line (a directory: its .evtx files by name).\n"
  "  --format xml    the event's XML (default); line breaks in values as &#10; and &#13;, and\n"
  "                  the control characters XML forbids as their control pictures (U+2400 + code)\n"
  "  --format jsonl  one JSON object per event: its System values and EventData texts\n"
  "  --query Q       only the events Q selects, as wevtutil qe /q: does: a bare XPath such as\n"
  "                  '*[System[EventID=4624]]' tests every event; a <QueryList> the events of\n"
  "                  the channels its Select elements name\n"
  "  --threads N     decode chunks on N threads (1 to 256); the output is the same, in order\n"
  "info prints a file's header and the records of each chunk.\n",
  &RunEvtx};
