#include "Simulators/TFTP/DisturbanceTFTP.h"

#include "Simulators/TFTP/PacketTFTP.h"

#include <PacketBytes/ByteWriter.h>

namespace Simulators
{

std::vector<Outgoing> Disturb( const Outgoing& aAnswer, const DisturbanceTFTP& aDisturbance )
{
    Outgoing lAnswer = aAnswer;
    switch ( aDisturbance.mTrouble )
    {
    case TroubleTFTP::SILENCE:
        return {};
    case TroubleTFTP::DUPLICATE:
        return { aAnswer, aAnswer };
    case TroubleTFTP::WRONG_BLOCK:
    {
        const auto lBlock =
            static_cast<uint16_t>( GetNumber( aAnswer.mBytes ) + aDisturbance.mBlockOffset );
        PacketBytes::BigWriter lWriter( lAnswer.mBytes.data(), lAnswer.mBytes.size() );
        lWriter.Skip( PacketTFTP::NUMBER_OFFSET ).Put16( lBlock );
        break;
    }
    case TroubleTFTP::FOREIGN_PORT:
        lAnswer.mFromPort = aDisturbance.mForeignPort;
        break;
    case TroubleTFTP::ERROR_PACKET:
        lAnswer.mBytes = MakeError( aDisturbance.mErrorCode, aDisturbance.mMessage );
        break;
    }
    return { lAnswer };
}

} // namespace Simulators
