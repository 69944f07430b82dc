// A provider whose instances and failures a test sets:
//   auto provider = std::make_shared<TestProvider>(decl);
//   provider->Add({{L"Name", std::wstring(L"a")}, {L"Count", std::uint32_t{3}}});
//   provider->FailElement(0, L"Count", MI_RESULT_ACCESS_DENIED); // that element read fails
//   provider->FailQuery(MI_RESULT_FAILED, L"broken", 1);         // one instance, then the error
// Properties left unset are NULL. Thread-safe.
#pragma once

#include "Cim/Provider.h"

#include <atomic>
#include <initializer_list>
#include <mutex>
#include <optional>
#include <utility>

namespace cim::testing
{
class TestProvider : public Provider
{
public:
  explicit TestProvider(std::shared_ptr<const ClassDecl> decl);

  std::shared_ptr<const ClassDecl> Class() const override;
  void Enumerate(std::vector<Instance>& out) override;

  // Adds an instance; names the class does not declare throw std::out_of_range.
  TestProvider& Add(std::initializer_list<std::pair<std::wstring, Value>> values);
  TestProvider& Add(Instance instance);
  // A new instance with every property NULL, for the caller to fill before the next query.
  Instance& AddEmpty();
  void Clear();
  std::size_t Count() const;

  // Reading that property of that instance fails with the code.
  void FailElement(std::size_t instanceIndex, std::wstring_view propertyName, std::uint32_t code);
  // Queries of the class fail with the code after delivering the first `after` instances.
  void FailQuery(std::uint32_t code, std::wstring message = {}, std::size_t after = 0);
  void Succeed(); // undoes FailQuery

  std::size_t Enumerations() const { return m_enumerations.load(); }

private:
  std::shared_ptr<const ClassDecl> m_decl;
  mutable std::mutex m_lock;
  std::vector<Instance> m_instances;
  std::optional<Error> m_failure;
  std::size_t m_failAfter = 0;
  std::atomic<std::size_t> m_enumerations{0};
};
} // namespace cim::testing
