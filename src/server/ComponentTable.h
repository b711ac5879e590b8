// The components that this module can create.
#pragma once

#include "server/Factory.h"

extern const CFactoryData g_FactoryDataArray[1];
