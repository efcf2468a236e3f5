#pragma once

/// The agent: its frame, its clients, the topologies that are announced to it.

#include "Cspf/Agent/Agent.h"
#include "Cspf/Agent/CommandCallback.h"
#include "Cspf/Clients/ClientSm.h"
#include "Cspf/Clients/ClientVrfSm.h"
#include "Cspf/Clients/TeConfigSm.h"
#include "Cspf/Topology/ExportSm.h"
