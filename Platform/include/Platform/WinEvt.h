// The Windows Event Log API (EvtOpenSession, EvtQuery, EvtNext, EvtRender, EvtFormatMessage...)
// for portable code. On Windows this is wevtapi; elsewhere our own bodies read .evtx files from a
// directory of channel files per host (see Platform/linux/WinEvt.h).
#pragma once

#include "Platform/Windows.h"

#ifdef _WIN32
#  include <winevt.h>
#else
#  include "Platform/linux/WinEvt.h"
#endif
