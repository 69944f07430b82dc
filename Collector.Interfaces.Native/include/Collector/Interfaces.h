// Every exported collector interface, for callers that want them all.
#pragma once

#include "Collector/Interfaces/FieldNames.h"
#include "Collector/Interfaces/FieldValue.h"
#include "Collector/Interfaces/IClass.h"
#include "Collector/Interfaces/ICollection.h"
#include "Collector/Interfaces/ICollector.h"
#include "Collector/Interfaces/IHost.h"
#include "Collector/Interfaces/IObject.h"
#include "Collector/Interfaces/IProperties.h"
#include "Collector/Interfaces/IRecord.h"
#include "Collector/Interfaces/ITask.h"
#include "Collector/Interfaces/IUser.h"
#include "Collector/Interfaces/MiInit.h"
#include "Collector/Interfaces/PerformanceInit.h"
#include "Collector/Interfaces/WinEventsInit.h"
