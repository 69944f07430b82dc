// The MI API on this machine: local destinations reach the machine's own host.
#include "Platform/Mi.h"

#include "Cim/Provider.h"

#include <gtest/gtest.h>

#include <string_view>
#include <utility>

TEST(MiMachine, LocalDestinationsOpenAndQueryRootCimv2)
{
  MI_Application application = MI_APPLICATION_NULL;
  ASSERT_EQ(MI_Application_InitializeV1(0, nullptr, nullptr, &application), MI_RESULT_OK);
  const std::wstring machine = cim::Hosts::MachineName();
  for (const MI_Char* destination : {L"", L".", L"localhost", machine.c_str(), static_cast<const MI_Char*>(nullptr)})
  {
    MI_Session session = MI_SESSION_NULL;
    ASSERT_EQ(MI_Application_NewSession(&application, L"WMIDCOM", destination, nullptr, nullptr, nullptr, &session),
              MI_RESULT_OK);
    MI_Operation operation = MI_OPERATION_NULL;
    MI_Session_QueryInstances(&session, 0, nullptr, L"root/cimv2", L"WQL", L"SELECT * FROM No_Such_Class", nullptr,
                              &operation);
    const MI_Instance* instance = nullptr;
    MI_Boolean more = MI_TRUE;
    MI_Result result = MI_RESULT_OK;
    EXPECT_EQ(MI_Operation_GetInstance(&operation, &instance, &more, &result, nullptr, nullptr), MI_RESULT_OK);
    // The namespace exists on this machine; the class does not.
    EXPECT_EQ(result, MI_RESULT_INVALID_CLASS);
    MI_Operation_Close(&operation);
    MI_Session_Close(&session, nullptr, nullptr);
  }
  MI_Application_Close(&application);
}

TEST(MiMachine, ProcessorCountersCarryTheirCounterType)
{
  MI_Application application = MI_APPLICATION_NULL;
  ASSERT_EQ(MI_Application_InitializeV1(0, nullptr, nullptr, &application), MI_RESULT_OK);
  MI_Session session = MI_SESSION_NULL;
  ASSERT_EQ(MI_Application_NewSession(&application, L"WMIDCOM", L"localhost", nullptr, nullptr, nullptr, &session),
            MI_RESULT_OK);
  MI_Operation operation = MI_OPERATION_NULL;
  MI_Session_QueryInstances(&session, 0, nullptr, L"root\\cimv2", L"WQL",
                            L"SELECT Name,Frequency_PerfTime,Timestamp_PerfTime,PercentProcessorTime FROM "
                            L"Win32_PerfRawData_PerfOS_Processor",
                            nullptr, &operation);
  bool total = false;
  int instances = 0;
  MI_Boolean more = MI_TRUE;
  while (more)
  {
    const MI_Instance* instance = nullptr;
    MI_Result result = MI_RESULT_OK;
    ASSERT_EQ(MI_Operation_GetInstance(&operation, &instance, &more, &result, nullptr, nullptr), MI_RESULT_OK);
    ASSERT_EQ(result, MI_RESULT_OK);
    if (!instance)
      continue;
    ++instances;
    MI_Value value;
    MI_Type type;
    MI_Uint32 flags;
    ASSERT_EQ(MI_Instance_GetElement(instance, L"Name", &value, &type, &flags, nullptr), MI_RESULT_OK);
    ASSERT_EQ(type, MI_STRING);
    total = total || std::wstring_view(value.string) == L"_Total";
    ASSERT_EQ(MI_Instance_GetElement(instance, L"PercentProcessorTime", &value, &type, &flags, nullptr), MI_RESULT_OK);
    EXPECT_FALSE(flags & MI_FLAG_NULL);
    bool counterType = false;
    for (MI_Uint32 i = 0; i < instance->classDecl->numProperties; ++i)
    {
      const MI_PropertyDecl* property = instance->classDecl->properties[i];
      if (std::wstring_view(property->name) != L"PercentProcessorTime")
        continue;
      for (MI_Uint32 q = 0; q < property->numQualifiers; ++q)
        counterType = counterType || std::wstring_view(property->qualifiers[q]->name) == L"CounterType";
    }
    EXPECT_TRUE(counterType);
  }
  EXPECT_TRUE(total);
  EXPECT_GE(instances, 2); // at least one CPU and "_Total"
  MI_Operation_Close(&operation);
  MI_Session_Close(&session, nullptr, nullptr);
  MI_Application_Close(&application);
}

// Windows returns the key properties of every instance whatever the query selects: a projected
// query of the processors still names each one, and of the processes still gives their Handle.
TEST(MiMachine, ProjectedQueriesKeepTheKeyProperties)
{
  MI_Application application = MI_APPLICATION_NULL;
  ASSERT_EQ(MI_Application_InitializeV1(0, nullptr, nullptr, &application), MI_RESULT_OK);
  MI_Session session = MI_SESSION_NULL;
  ASSERT_EQ(MI_Application_NewSession(&application, L"WMIDCOM", L"localhost", nullptr, nullptr, nullptr, &session),
            MI_RESULT_OK);
  const std::pair<const MI_Char*, const MI_Char*> cases[] = {
      {L"SELECT PercentUserTime FROM Win32_PerfRawData_PerfOS_Processor", L"Name"},
      {L"SELECT ProcessId FROM Win32_Process", L"Handle"},
  };
  for (const auto& [query, key] : cases)
  {
    MI_Operation operation = MI_OPERATION_NULL;
    MI_Session_QueryInstances(&session, 0, nullptr, L"root/cimv2", L"WQL", query, nullptr, &operation);
    int instances = 0;
    MI_Boolean more = MI_TRUE;
    while (more)
    {
      const MI_Instance* instance = nullptr;
      MI_Result result = MI_RESULT_OK;
      ASSERT_EQ(MI_Operation_GetInstance(&operation, &instance, &more, &result, nullptr, nullptr), MI_RESULT_OK);
      ASSERT_EQ(result, MI_RESULT_OK);
      if (!instance)
        continue;
      ++instances;
      MI_Value value;
      MI_Type type;
      MI_Uint32 flags = 0;
      ASSERT_EQ(MI_Instance_GetElement(instance, key, &value, &type, &flags, nullptr), MI_RESULT_OK);
      EXPECT_FALSE(flags & MI_FLAG_NULL);
      // A property neither selected nor a key is NULL.
      ASSERT_EQ(MI_Instance_GetElement(instance, L"Caption", &value, &type, &flags, nullptr), MI_RESULT_OK);
      EXPECT_TRUE(flags & MI_FLAG_NULL);
    }
    EXPECT_GT(instances, 0);
    MI_Operation_Close(&operation);
  }
  MI_Session_Close(&session, nullptr, nullptr);
  MI_Application_Close(&application);
}
