// The login name of the account this test runs as, asked of the system directly rather than
// through the code under test. One body per platform (linux/, windows/).
#pragma once

#include <string>

std::wstring TestProcessUserName();
