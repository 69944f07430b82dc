// Compiled templates shared by the chunks of one reader. Windows repeats, in every chunk, the
// definition of each template the chunk uses, so a reader that keeps this cache compiles a
// template once per log instead of once per chunk. A File gives one to each chunk it loads;
// a Chunk loaded on its own can be given one with Chunk::ShareTemplates.
//
// A definition is reused only when its bytes match (names it refers to outside itself and the
// layout choices the compiler made are checked too), never by GUID or hash alone, so a damaged
// chunk cannot make another chunk render its template. Memory is bounded: the cache starts
// over when its entries exceed the byte limit; a chunk keeps the entries it took. Thread safety:
// its own lock, and an entry never changes once stored.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

namespace evtx
{
namespace detail
{
class TemplateStore;
}

class TemplateCache
{
public:
  static constexpr std::size_t kDefaultLimit = 4u << 20;

  explicit TemplateCache(std::size_t byteLimit = kDefaultLimit);
  ~TemplateCache();
  TemplateCache(const TemplateCache&) = delete;
  TemplateCache& operator=(const TemplateCache&) = delete;

  // Templates compiled and stored since the cache was made.
  std::uint64_t Stored() const;
  // Template uses served from the cache instead of a compile.
  std::uint64_t Hits() const;

  detail::TemplateStore& Store() noexcept { return *store_; }

private:
  std::unique_ptr<detail::TemplateStore> store_;
};
} // namespace evtx
