#include "KeldaKernel/Exceptions.h"

#include "ThrowSite.h"

#include <boost/exception/get_error_info.hpp>
#include <gtest/gtest.h>

#include <new>
#include <stdexcept>

TEST(Exceptions, ThrowLocationIsAttached)
{
  try
  {
    throwsite::ThrowInvalidArgument();
    FAIL() << "no exception";
  }
  catch (const std::exception& error)
  {
    EXPECT_NE(get_throw_function(error).find("ThrowInvalidArgument"), std::string::npos);
    EXPECT_NE(get_throw_file(error).find("ThrowSite.h"), std::string::npos);
    EXPECT_EQ(get_throw_line(error), throwsite::g_line);
    EXPECT_EQ(get_hresult(error), E_INVALIDARG);
    EXPECT_EQ(get_description(error), L"Host name can not be empty");
    EXPECT_STREQ(error.what(), "Host name can not be empty");
  }
}

TEST(Exceptions, WithoutKeldaThrowThereIsNoLocation)
{
  const std::runtime_error plain("boom");
  EXPECT_EQ(get_throw_function(plain), "");
  EXPECT_EQ(get_throw_file(plain), "");
  EXPECT_EQ(get_throw_line(plain), 0);
  const CKeldaException kelda(L"Already initialized");
  EXPECT_EQ(get_throw_line(kelda), 0);
}

TEST(Exceptions, HResultOfAnyException)
{
  EXPECT_EQ(get_hresult(CKeldaException(L"Already initialized")), E_FAIL);
  EXPECT_EQ(get_hresult(CHResultException(E_NOTIMPL)), E_NOTIMPL);
  EXPECT_EQ(get_hresult(CWin32Exception(ERROR_INVALID_SID)), static_cast<HRESULT>(0x80070539u));
  EXPECT_EQ(get_hresult(CInterruptedException()), static_cast<HRESULT>(0x800704C7u));
  EXPECT_EQ(get_hresult(std::bad_alloc()), E_OUTOFMEMORY);
  EXPECT_EQ(get_hresult(std::runtime_error("x")), E_FAIL);
}

TEST(Exceptions, DescriptionIsMessageOrSystemText)
{
  EXPECT_EQ(CHResultException(E_NOTIMPL).description(), L"Not implemented");
  EXPECT_EQ(CHResultException(E_INVALIDARG).description(), L"The parameter is incorrect.");
  EXPECT_EQ(CHResultException(E_INVALIDARG, L"Bad host").description(), L"Bad host");
  EXPECT_EQ(CWin32Exception(RPC_S_SERVER_UNAVAILABLE).description(), L"The RPC server is unavailable.");
  EXPECT_EQ(CWin32Exception(ERROR_CANCELLED).error(), ERROR_CANCELLED);
  EXPECT_EQ(CKeldaException(L"").description(), L"Unspecified error");
  EXPECT_EQ(CInterruptedException().description(), L"Interrupted");
  EXPECT_EQ(get_description(std::runtime_error("plain \xC3\xA9")), L"plain \u00E9");
}

TEST(Exceptions, WhatIsUtf8OfDescription)
{
  const CHResultException error(E_FAIL, L"caf\u00E9 \u20AC");
  EXPECT_STREQ(error.what(), "caf\xC3\xA9 \xE2\x82\xAC");
}

TEST(Exceptions, SystemTexts)
{
  EXPECT_EQ(get_hresult_text(E_NOTIMPL), L"Not implemented");
  EXPECT_EQ(get_hresult_text(E_FAIL), L"Unspecified error");
  EXPECT_EQ(get_hresult_text(E_ACCESSDENIED), L"Access is denied.");
  EXPECT_EQ(get_hresult_text(E_OUTOFMEMORY), L"Not enough memory resources are available to complete this operation.");
  EXPECT_EQ(get_hresult_text(HRESULT_FROM_WIN32(ERROR_CANCELLED)), L"The operation was canceled by the user.");
  EXPECT_EQ(get_hresult_text(HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND)), L"The system cannot find the file specified.");
  EXPECT_EQ(get_hresult_text(HRESULT_FROM_WIN32(ERROR_INVALID_SID)), L"The security ID structure is invalid.");
  EXPECT_EQ(get_hresult_text(HRESULT_FROM_WIN32(15001)), L"The specified query is invalid.");
  // A bare Win32 code reads like its HRESULT.
  EXPECT_EQ(get_hresult_text(static_cast<HRESULT>(ERROR_CANCELLED)), L"The operation was canceled by the user.");
  EXPECT_EQ(get_hresult_text(static_cast<HRESULT>(0x8123ABCDu)), L"Unknown error 0x8123ABCD");
  EXPECT_EQ(get_hresult_text(HRESULT_FROM_WIN32(9999)), L"Unknown error 0x8007270F");
}

TEST(Exceptions, HResultFromWin32Rule)
{
  EXPECT_EQ(HRESULT_FROM_WIN32(ERROR_CANCELLED), static_cast<HRESULT>(0x800704C7u));
  EXPECT_EQ(HRESULT_FROM_WIN32(0x00012345u), static_cast<HRESULT>(0x80072345u));
  EXPECT_EQ(HRESULT_FROM_WIN32(0), 0);
  EXPECT_EQ(HRESULT_FROM_WIN32(static_cast<unsigned long>(static_cast<DWORD>(E_INVALIDARG))), E_INVALIDARG);
  EXPECT_EQ(CWin32Exception(0).hresult(), 0);
}

TEST(Exceptions, CaughtAsBoostExceptionToo)
{
  try
  {
    KELDA_THROW(CInterruptedException());
  }
  catch (const boost::exception& error)
  {
    EXPECT_NE(boost::get_error_info<boost::throw_line>(error), nullptr);
    return;
  }
  FAIL() << "not a boost::exception";
}
