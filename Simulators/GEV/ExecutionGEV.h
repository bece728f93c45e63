#pragma once

#include "Simulators/GEV/CommandGEV.h"
#include "Simulators/GEV/RegistersGEV.h"

namespace Simulators
{

// Executes a command, as far as the registers allow it, and says what its acknowledge carries.
ReplyGEV Execute( const CommandGEV& aCommand, RegistersGEV& aRegisters );

} // namespace Simulators
