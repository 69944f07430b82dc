// The objects behind session, event and publisher handles.
#pragma once

#include "Handles.h"

#include "Evtx/Chunk.h"

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

namespace natc::winevt
{
// What EvtOpenSession was given. As on Windows, nothing is checked when the session opens: the
// host and the logon are checked by each call that reads from it (see Connect in Hosts.h).
class SessionObject final : public EvtObject
{
public:
  SessionObject(std::wstring server, std::wstring user, std::wstring password)
    : m_server(std::move(server)), m_user(std::move(user)), m_password(std::move(password))
  {
  }
  const std::wstring& Server() const { return m_server; }
  const std::wstring& User() const { return m_user; }
  const std::wstring& Password() const { return m_password; }

private:
  std::wstring m_server;
  std::wstring m_user;
  std::wstring m_password;
};

// A loaded chunk shared by the events that came from it. Decoding and rendering use the chunk's
// template cache, so they take its lock: event handles may be used on any thread.
struct SharedChunk
{
  SharedChunk(std::shared_ptr<evtx::Chunk> loaded, std::shared_ptr<std::mutex> fileLock)
    : chunk(std::move(loaded)), m_fileLock(std::move(fileLock))
  {
  }
  SharedChunk(const SharedChunk&) = delete;
  SharedChunk& operator=(const SharedChunk&) = delete;
  // The file reuses a chunk object once nobody else holds it, and checks that with a plain count:
  // the last holder lets go under the lock the file's loads take, so that its rendering happens
  // before the reuse even when the two run on different threads.
  ~SharedChunk()
  {
    const std::lock_guard guard(*m_fileLock);
    chunk.reset();
  }

  std::mutex lock;
  std::shared_ptr<evtx::Chunk> chunk;

private:
  std::shared_ptr<std::mutex> m_fileLock;
};

class EventObject final : public EvtObject
{
public:
  EventObject(std::shared_ptr<SharedChunk> chunk, const evtx::Record& record, std::shared_ptr<const std::wstring> path)
    : m_chunk(std::move(chunk)), m_record(record), m_path(std::move(path)), m_serial(NextSerial())
  {
  }

  std::uint64_t RecordId() const { return m_record.id; }
  // A number given to no other event of this process.
  static std::uint64_t NextSerial() noexcept;
  // The channel or file path the event was read from (EvtGetEventInfo's EvtEventPath).
  const std::wstring& Path() const { return *m_path; }
  // The event's XML as Windows renders it, in UTF-8, and if asked its length in wide characters.
  // The text lives in the calling thread's buffer, which holds the last event rendered on that
  // thread (valid until the thread's next call): the size protocol's second call finds it there,
  // and any later call renders the same text again. False when the record cannot be rendered.
  bool Xml(const std::string*& xml, std::size_t* wideLength = nullptr);

private:
  std::shared_ptr<SharedChunk> m_chunk;
  evtx::Record m_record;
  std::shared_ptr<const std::wstring> m_path;
  // Tells this event's text apart from any other event's in a thread's buffer.
  std::uint64_t m_serial;
};
} // namespace natc::winevt
