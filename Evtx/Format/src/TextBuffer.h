// TextBuffer: the XML renderer's output. It writes through a cursor into a std::string whose
// length runs ahead of the text (the tail is room to write into), so that an append is one
// bounds check and an inline copy instead of std::string's length bookkeeping and a memcpy
// call for every piece of a few bytes.
//
// Usage: TextBuffer buffer(out); ... buffer.append(...); the destructor (or Commit()) gives
// `out` back the length of the text written. Code that takes a std::string calls Commit(),
// works on the string, then Sync().
#pragma once

#include "Evtx/ValueText.h"

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

namespace evtx::detail
{
// Bytes a padded append may read past its source and write past its text (see AppendPadded).
inline constexpr std::size_t kCopySlack = 32;

class TextBuffer
{
public:
  explicit TextBuffer(std::string& storage) : s_(storage) { Sync(); }
  ~TextBuffer() { Commit(); }
  TextBuffer(const TextBuffer&) = delete;
  TextBuffer& operator=(const TextBuffer&) = delete;

  std::size_t size() const noexcept { return size_; }
  char* data() noexcept { return buf_; }
  char& back() noexcept { return buf_[size_ - 1]; }

  // Makes room for n more bytes after the text.
  void Reserve(std::size_t n)
  {
    if (cap_ - size_ < n)
      Grow(n);
  }
  // Sets the text's length; bytes added by growing are left for the caller to write.
  void resize(std::size_t n)
  {
    if (n > size_)
      Reserve(n - size_);
    size_ = n;
  }

  void append(const char* p, std::size_t n)
  {
    Reserve(n);
    Copy(buf_ + size_, p, n);
    size_ += n;
  }
  // The same for text followed by kCopySlack readable bytes (the compiled templates' text
  // table ends with that many): a short piece is copied as 32 bytes, in two moves and no
  // decision on its length.
  void AppendPadded(const char* p, std::size_t n)
  {
    Reserve(n + kCopySlack);
    char* to = buf_ + size_;
    if (n <= kCopySlack)
    {
      char block[kCopySlack];
      std::memcpy(block, p, kCopySlack);
      std::memcpy(to, block, kCopySlack);
    }
    else
    {
      std::memcpy(to, p, n);
    }
    size_ += n;
  }
  void append(const char* first, const char* last)
  {
    append(first, static_cast<std::size_t>(last - first));
  }
  void append(std::string_view text) { append(text.data(), text.size()); }
  TextBuffer& operator+=(char c)
  {
    Reserve(1);
    buf_[size_++] = c;
    return *this;
  }
  TextBuffer& operator+=(const char* text)
  {
    append(text, std::strlen(text));
    return *this;
  }

  // Gives the string the text's length and returns it.
  std::string& Commit()
  {
    s_.resize(size_);
    cap_ = size_;
    return s_;
  }
  // Takes the string's text as this buffer's, after code changed it directly.
  void Sync()
  {
    size_ = s_.size();
    cap_ = size_;
    buf_ = s_.data();
  }

private:
  // Short copies (names, markup, numbers) as a few fixed-size moves, which the compiler
  // inlines; longer ones through memcpy.
  static void Copy(char* to, const char* from, std::size_t n)
  {
    if (n > 16)
    {
      std::memcpy(to, from, n);
      return;
    }
    if (n >= 8)
    {
      std::uint64_t head, tail;
      std::memcpy(&head, from, 8);
      std::memcpy(&tail, from + n - 8, 8);
      std::memcpy(to, &head, 8);
      std::memcpy(to + n - 8, &tail, 8);
    }
    else if (n >= 4)
    {
      std::uint32_t head, tail;
      std::memcpy(&head, from, 4);
      std::memcpy(&tail, from + n - 4, 4);
      std::memcpy(to, &head, 4);
      std::memcpy(to + n - 4, &tail, 4);
    }
    else if (n > 0)
    {
      to[0] = from[0];
      to[n / 2] = from[n / 2];
      to[n - 1] = from[n - 1];
    }
  }

  // Out of line: the appends inlined everywhere keep only a call for their rare slow path.
  [[gnu::noinline]] void Grow(std::size_t n)
  {
    // The string's own growth is geometric; the room added here is small, since the string
    // zero-fills it and records are a few hundred bytes.
    constexpr std::size_t kRoom = 1024;
    s_.resize(size_ + (n > kRoom ? n : kRoom));
    cap_ = s_.size();
    buf_ = s_.data();
  }

  std::string& s_;
  char* buf_ = nullptr;
  std::size_t size_ = 0;
  std::size_t cap_ = 0;
};

// The renderer's forms of the ValueText.h functions, writing into a TextBuffer.
void AppendValueText(TextBuffer& out, const Value& value, TextEscape escape);
void AppendUtf16(TextBuffer& out, const std::uint8_t* utf16, std::size_t units, TextEscape escape);
} // namespace evtx::detail
