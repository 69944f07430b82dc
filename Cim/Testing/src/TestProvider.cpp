#include "Cim/Testing/TestProvider.h"

#include <stdexcept>

namespace cim::testing
{
TestProvider::TestProvider(std::shared_ptr<const ClassDecl> decl) : m_decl(std::move(decl)) {}

std::shared_ptr<const ClassDecl> TestProvider::Class() const { return m_decl; }

void TestProvider::Enumerate(std::vector<Instance>& out)
{
  ++m_enumerations;
  std::lock_guard lock(m_lock);
  if (!m_failure)
  {
    out.insert(out.end(), m_instances.begin(), m_instances.end());
    return;
  }
  for (std::size_t i = 0; i < m_failAfter && i < m_instances.size(); ++i)
    out.push_back(m_instances[i]);
  throw *m_failure;
}

TestProvider& TestProvider::Add(std::initializer_list<std::pair<std::wstring, Value>> values)
{
  Instance instance(m_decl);
  for (const auto& [name, value] : values)
    instance.Set(name, value);
  return Add(std::move(instance));
}

TestProvider& TestProvider::Add(Instance instance)
{
  if (instance.elements.size() != m_decl->properties.size())
    throw std::invalid_argument("instance is not of the provider's class");
  std::lock_guard lock(m_lock);
  m_instances.push_back(std::move(instance));
  return *this;
}

Instance& TestProvider::AddEmpty()
{
  std::lock_guard lock(m_lock);
  return m_instances.emplace_back(m_decl);
}

void TestProvider::Clear()
{
  std::lock_guard lock(m_lock);
  m_instances.clear();
}

std::size_t TestProvider::Count() const
{
  std::lock_guard lock(m_lock);
  return m_instances.size();
}

void TestProvider::FailElement(std::size_t instanceIndex, std::wstring_view propertyName, std::uint32_t code)
{
  const std::size_t property = m_decl->Find(propertyName);
  if (property == ClassDecl::npos)
    throw std::out_of_range("class does not declare the property");
  std::lock_guard lock(m_lock);
  m_instances.at(instanceIndex).elements[property].readError = code;
}

void TestProvider::FailQuery(std::uint32_t code, std::wstring message, std::size_t after)
{
  std::lock_guard lock(m_lock);
  m_failure = Error{code, std::move(message)};
  m_failAfter = after;
}

void TestProvider::Succeed()
{
  std::lock_guard lock(m_lock);
  m_failure.reset();
}
} // namespace cim::testing
