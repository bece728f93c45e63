// Reading and writing registers, the same for all devices.
#pragma once

#include "Tools/htbase/Device.h"
#include "Tools/htbase/Program.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace HtBaseTool
{

struct RegisterValue
{
    uint64_t mAddress;
    uint32_t mValue;
};

// Add ADDRESS, ADDRESS..., or ADDRESS=VALUE...
void AddRegisterAddress( CLI::App& aCommand, std::string& aText );
void AddRegisterAddresses( CLI::App& aCommand, std::vector<std::string>& aTexts );
void AddRegisterPairs( CLI::App& aCommand, std::vector<std::string>& aTexts );

// Throw a usage failure.
uint64_t ParseRegisterAddress( const std::string& aText, AddressBits aBits );
std::vector<uint64_t> ParseRegisterAddresses( const std::vector<std::string>& aTexts,
                                              AddressBits aBits );
std::vector<RegisterValue> ParseRegisterPairs( const std::vector<std::string>& aTexts,
                                               AddressBits aBits );

// ", 0 of 3 registers were written" where several are to be.
std::string GetNoneWritten( size_t aCount );

// Begins the report of either.
void BeginRegisters( Program& aProgram, const Device& aDevice );

// Read, or write through aWrite, one register after the other, and report each. Throw a Failure at
// the first that fails, which says how many were done.
using RegisterWrite = std::function<QmUtilsLib::Result( const RegisterValue& aRegister )>;
void ReadRegisters( Program& aProgram, Device& aDevice, const std::vector<uint64_t>& aAddresses );
void WriteRegisters( Program& aProgram, const Device& aDevice,
                     const std::vector<RegisterValue>& aRegisters, const RegisterWrite& aWrite );

} // namespace HtBaseTool
