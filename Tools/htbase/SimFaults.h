// The bad network between a virtual device and its hosts, as configured by the user.
#pragma once

#include "Simulators/FaultPlan.h"
#include "Simulators/Servers/DeviceServer.h"
#include "Tools/htbase/Host.h"

#include <nlohmann/json.hpp>

#include <cstdint>
#include <string>

namespace CLI
{
class App;
}

namespace HtBaseTool
{

struct SimFaults
{
    Simulators::FaultPlan::Rates mRates;
    std::string mSeed = "1";

    // Sets both plans of a server. Each aIndex gives other numbers. Throws a usage failure.
    void Apply( Simulators::DeviceServer::Options& aServer, uint64_t aIndex ) const;
};

// Adds --loss and the others, and --seed.
void AddFaultOptions( CLI::App& aCommand, SimFaults& aFaults );

// Opens the server, or throws a Failure that says where it cannot serve and why.
void OpenServer( Simulators::DeviceServer& aServer,
                 const Simulators::DeviceServer::Options& aOptions );

// Throws when serving ended because of this result and not because it was stopped.
void CheckServed( const QmUtilsLib::Result& aResult, bool aIsStopped );

// What happened on both ways: into aReport, and as the lines "requests: ...\nanswers: ...\n".
void ReportFaults( nlohmann::ordered_json& aReport, const Simulators::DeviceServer& aServer );
std::string GetFaultsText( const Simulators::DeviceServer& aServer );

} // namespace HtBaseTool
