// Everything the kernel offers, for code that wants it all.
#pragma once

#include "KeldaKernel/Account.h"
#include "KeldaKernel/Cancellation.h"
#include "KeldaKernel/Exceptions.h"
#include "KeldaKernel/Logger.h"
#include "KeldaKernel/Observer.h"
#include "KeldaKernel/OleDateTime.h"
#include "KeldaKernel/Pool.h"
#include "KeldaKernel/Strings.h"
