#include "tests/support/VirtualUsb.h"

#include "Simulators/U3V/DescriptorsU3V.h"
#include "tests/support/LittleEndian.h"

#include <sys/ioctl.h>

#include <dlfcn.h>
#include <linux/usbdevice_fs.h>
#include <umockdev.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <list>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <thread>
#include <utility>

namespace TestSupport
{

using Simulators::Bytes;
using Simulators::ConfigurationU3V;
using Simulators::FaultU3V;
using Simulators::VirtualDeviceU3V;
using Ending = VirtualDeviceU3V::Ending;

namespace
{

constexpr uint8_t CONTROL_INTERFACE = 0;
constexpr uint8_t DESCRIPTOR_DEVICE = 1;
constexpr uint8_t DESCRIPTOR_CONFIGURATION = 2;
constexpr uint8_t DESCRIPTOR_STRING = 3;
constexpr uint8_t IDENTITY_TEXT = 4; // index of its string descriptor

int64_t GetNowMs()
{
    using namespace std::chrono;
    return duration_cast<milliseconds>( steady_clock::now().time_since_epoch() ).count();
}

template <typename TYPE>
TYPE GetRecord( UMockdevIoctlData* aData, size_t aOffset = 0 )
{
    TYPE lRecord{};
    const auto lSize = static_cast<size_t>( aData->data_len );
    if ( aOffset + sizeof( lRecord ) <= lSize )
    {
        std::memcpy( &lRecord, aData->data + aOffset, sizeof( lRecord ) );
    }
    return lRecord;
}

void PutBytes( UMockdevIoctlData* aData, size_t aOffset, const void* aBytes, size_t aSize )
{
    if ( aSize != 0 )
    {
        Bytes lCopy( aSize );
        std::memcpy( lCopy.data(), aBytes, aSize );
        umockdev_ioctl_data_update( aData, aOffset, lCopy.data(), static_cast<int>( aSize ) );
    }
}

// A reference to memory of the host.
using DataPointer = std::shared_ptr<UMockdevIoctlData>;

DataPointer Follow( UMockdevIoctlData* aData, size_t aOffset, size_t aSize )
{
    if ( aSize == 0 )
    {
        return nullptr;
    }
    return DataPointer( umockdev_ioctl_data_resolve( aData, aOffset, aSize, nullptr ),
                        []( UMockdevIoctlData* aOld )
                        {
                            if ( aOld != nullptr )
                            {
                                umockdev_ioctl_data_unref( aOld );
                            }
                        } );
}

// Passes the data of one thread to the emulation's. The libraries between do so too, but in a way
// that the thread sanitizer does not see.
std::atomic<int> gHandOver{ 0 };

// What an ioctl returns: a number, or -1 and an errno value.
struct Answer
{
    long mResult = 0;
    int mErrno = 0;
};

Answer Fail( int aErrno )
{
    return { -1, aErrno };
}

// A request block that a host has submitted.
struct Urb
{
    DataPointer mData; // the block in the host's memory
    DataPointer mBuffer;
    uint8_t mType = 0;
    uint8_t mEndpoint = 0;
    size_t mRoom = 0;
    bool mIsCompleted = false;
    int mStatus = 0;
    int mActual = 0;
};

// A host that has opened the device.
struct Host
{
    std::list<Urb> mUrbs; // in order of submission; completed ones in that of reaping
    std::set<unsigned int> mClaimed;
    bool mIsGone = false; // the device that it has opened was removed
};

bool WaitFor( const std::function<bool()>& aCondition )
{
    constexpr int64_t LIMIT_MS = 10000;
    const int64_t lEnd = GetNowMs() + LIMIT_MS;
    while ( !aCondition() )
    {
        if ( GetNowMs() > lEnd )
        {
            return false;
        }
        std::this_thread::sleep_for( std::chrono::milliseconds( 1 ) );
    }
    return true;
}

} // namespace

class VirtualUsbDevice::Implementation
{
public:
    Implementation( const ConfigurationU3V& aConfiguration, const std::string& aPath )
        : mPath( aPath )
        , mDevice( aConfiguration )
    {
    }

    // What the emulation calls, on a thread of its own.
    static gboolean OnIoctl( UMockdevIoctlBase* aBase, UMockdevIoctlClient* aClient,
                             gpointer aDevice );
    static void OnVanished( UMockdevIoctlBase* aBase, UMockdevIoctlClient* aClient,
                            gpointer aDevice );

    const std::string mPath;
    std::string mNode;    // as this process sees it
    std::string mSysPath; // of the emulation
    UMockdevIoctlBase* mHandler = nullptr;

    mutable std::mutex mMutex;
    VirtualDeviceU3V mDevice;
    std::map<UMockdevIoctlClient*, Host> mHosts;
    bool mIsDriverBound = false;
    unsigned int mClears = 0;
    std::vector<Transfer> mTransfers;
    Identity mIdentity = Identity::TOLD;
    std::array<int, static_cast<size_t>( Request::COUNT )> mFailures{}; // errno, 0: none
    std::optional<unsigned int> mCut;                                   // of the next command
    bool mAreTransfersOpen = false;
    bool mIsHoldingReleases = false;
    std::vector<UMockdevIoctlClient*> mReleasing; // owned

    void LetReleasesGo();

private:
    bool Hold( UMockdevIoctlClient* aClient );
    int TakeFailure( Request aRequest );
    Answer Handle( UMockdevIoctlClient* aClient );
    void Forget( UMockdevIoctlClient* aClient );
    Answer Dispatch( Host& aHost, unsigned long aRequest, UMockdevIoctlData* aArgument );
    Answer Submit( Host& aHost, UMockdevIoctlData* aArgument );
    Answer Reap( Host& aHost, UMockdevIoctlData* aArgument );
    Answer Discard( Host& aHost, UMockdevIoctlData* aArgument );
    Answer Claim( Host& aHost, unsigned int aInterface );
    Answer ClaimFromDriver( Host& aHost, UMockdevIoctlData* aArgument );
    Answer Release( Host& aHost, unsigned int aInterface );
    Answer TalkToDriver( UMockdevIoctlData* aArgument );
    Answer TellDriver( UMockdevIoctlData* aArgument );
    void Control( Urb& aUrb );
    void Send( Urb& aUrb );
    void Progress( Host& aHost );
    void Receive( Urb& aUrb );
};

Answer VirtualUsbDevice::Implementation::Handle( UMockdevIoctlClient* aClient )
{
    const std::lock_guard<std::mutex> lLock( mMutex );
    return Dispatch( mHosts[aClient], umockdev_ioctl_client_get_request( aClient ),
                     umockdev_ioctl_client_get_arg( aClient ) );
}

// Whether the answer has to wait.
bool VirtualUsbDevice::Implementation::Hold( UMockdevIoctlClient* aClient )
{
    const std::lock_guard<std::mutex> lLock( mMutex );
    if ( !mIsHoldingReleases ||
         umockdev_ioctl_client_get_request( aClient ) != USBDEVFS_RELEASEINTERFACE )
    {
        return false;
    }
    g_object_ref( aClient );
    mReleasing.push_back( aClient );
    return true;
}

int VirtualUsbDevice::Implementation::TakeFailure( Request aRequest )
{
    return std::exchange( mFailures.at( static_cast<size_t>( aRequest ) ), 0 );
}

void VirtualUsbDevice::Implementation::LetReleasesGo()
{
    std::vector<UMockdevIoctlClient*> lReleasing;
    {
        const std::lock_guard<std::mutex> lLock( mMutex );
        mIsHoldingReleases = false;
        lReleasing.swap( mReleasing );
    }
    for ( UMockdevIoctlClient* const lClient : lReleasing )
    {
        const Answer lAnswer = Handle( lClient );
        umockdev_ioctl_client_complete( lClient, lAnswer.mResult, lAnswer.mErrno );
        g_object_unref( lClient );
    }
}

void VirtualUsbDevice::Implementation::Forget( UMockdevIoctlClient* aClient )
{
    const std::lock_guard<std::mutex> lLock( mMutex );
    mHosts.erase( aClient );
}

Answer VirtualUsbDevice::Implementation::Dispatch( Host& aHost, unsigned long aRequest,
                                                   UMockdevIoctlData* aArgument )
{
    const auto lGetNumber = [aArgument]
    {
        return GetRecord<unsigned int>( Follow( aArgument, 0, sizeof( unsigned int ) ).get() );
    };
    // A removed device still answers these, so that hosts get their requests back.
    if ( aRequest == USBDEVFS_REAPURBNDELAY )
    {
        return Reap( aHost, aArgument );
    }
    if ( aRequest == USBDEVFS_DISCARDURB )
    {
        return Discard( aHost, aArgument );
    }
    if ( aRequest == USBDEVFS_GET_CAPABILITIES )
    {
        constexpr uint32_t CAPABILITIES =
            USBDEVFS_CAP_ZERO_PACKET | USBDEVFS_CAP_BULK_SCATTER_GATHER |
            USBDEVFS_CAP_NO_PACKET_SIZE_LIM | USBDEVFS_CAP_REAP_AFTER_DISCONNECT;
        PutBytes( Follow( aArgument, 0, sizeof( CAPABILITIES ) ).get(), 0, &CAPABILITIES,
                  sizeof( CAPABILITIES ) );
        return {};
    }
    if ( mDevice.IsGone() || aHost.mIsGone )
    {
        return Fail( ENODEV );
    }
    switch ( aRequest )
    {
    case USBDEVFS_SUBMITURB:
        return Submit( aHost, aArgument );
    case USBDEVFS_CLAIMINTERFACE:
        return Claim( aHost, lGetNumber() );
    case USBDEVFS_DISCONNECT_CLAIM:
        return ClaimFromDriver( aHost, aArgument );
    case USBDEVFS_RELEASEINTERFACE:
        return Release( aHost, lGetNumber() );
    case USBDEVFS_IOCTL:
        return TalkToDriver( aArgument );
    case USBDEVFS_GETDRIVER:
        return TellDriver( aArgument );
    case USBDEVFS_CLEAR_HALT:
        if ( const int lError = TakeFailure( Request::CLEAR_HALT ) )
        {
            return Fail( lError );
        }
        mDevice.ClearHalt( static_cast<uint8_t>( lGetNumber() ) );
        mClears++;
        return {};
    case USBDEVFS_SETCONFIGURATION:
    case USBDEVFS_SETINTERFACE:
    case USBDEVFS_RESET:
        return {};
    default:
        return Fail( ENOTTY );
    }
}

Answer VirtualUsbDevice::Implementation::Claim( Host& aHost, unsigned int aInterface )
{
    const bool lIsTaken = std::any_of( mHosts.begin(), mHosts.end(),
                                       [&]( const auto& aOther ) {
                                           return &aOther.second != &aHost &&
                                                  aOther.second.mClaimed.count( aInterface ) != 0;
                                       } );
    if ( lIsTaken || ( aInterface == CONTROL_INTERFACE && mIsDriverBound ) )
    {
        return Fail( EBUSY );
    }
    aHost.mClaimed.insert( aInterface );
    return {};
}

Answer VirtualUsbDevice::Implementation::ClaimFromDriver( Host& aHost,
                                                          UMockdevIoctlData* aArgument )
{
    const DataPointer lData = Follow( aArgument, 0, sizeof( usbdevfs_disconnect_claim ) );
    const auto lClaim = GetRecord<usbdevfs_disconnect_claim>( lData.get() );
    if ( lClaim.interface == CONTROL_INTERFACE )
    {
        mIsDriverBound = false;
    }
    return Claim( aHost, lClaim.interface );
}

Answer VirtualUsbDevice::Implementation::Release( Host& aHost, unsigned int aInterface )
{
    return aHost.mClaimed.erase( aInterface ) != 0 ? Answer() : Fail( EINVAL );
}

Answer VirtualUsbDevice::Implementation::TalkToDriver( UMockdevIoctlData* aArgument )
{
    const DataPointer lData = Follow( aArgument, 0, sizeof( usbdevfs_ioctl ) );
    const auto lTalk = GetRecord<usbdevfs_ioctl>( lData.get() );
    const auto lCode = static_cast<unsigned int>( lTalk.ioctl_code );
    if ( lCode == USBDEVFS_DISCONNECT )
    {
        const bool lWasBound = lTalk.ifno == CONTROL_INTERFACE && mIsDriverBound;
        mIsDriverBound = mIsDriverBound && !lWasBound;
        return lWasBound ? Answer() : Fail( ENODATA );
    }
    if ( lCode == USBDEVFS_CONNECT )
    {
        mIsDriverBound = mIsDriverBound || lTalk.ifno == CONTROL_INTERFACE;
        return { 1, 0 };
    }
    return Fail( ENOTTY );
}

Answer VirtualUsbDevice::Implementation::TellDriver( UMockdevIoctlData* aArgument )
{
    const DataPointer lData = Follow( aArgument, 0, sizeof( usbdevfs_getdriver ) );
    const auto lDriver = GetRecord<usbdevfs_getdriver>( lData.get() );
    if ( lDriver.interface != CONTROL_INTERFACE || !mIsDriverBound )
    {
        return Fail( ENODATA );
    }
    constexpr char NAME[] = "somedriver";
    PutBytes( lData.get(), offsetof( usbdevfs_getdriver, driver ), NAME, sizeof( NAME ) );
    return {};
}

Answer VirtualUsbDevice::Implementation::Submit( Host& aHost, UMockdevIoctlData* aArgument )
{
    Urb lUrb;
    lUrb.mData = Follow( aArgument, 0, sizeof( usbdevfs_urb ) );
    UMockdevIoctlData* const lBlock = lUrb.mData.get();
    lUrb.mType = GetRecord<uint8_t>( lBlock, offsetof( usbdevfs_urb, type ) );
    lUrb.mEndpoint = GetRecord<uint8_t>( lBlock, offsetof( usbdevfs_urb, endpoint ) );
    lUrb.mRoom = GetRecord<uint32_t>( lBlock, offsetof( usbdevfs_urb, buffer_length ) );
    lUrb.mBuffer = Follow( lUrb.mData.get(), offsetof( usbdevfs_urb, buffer ), lUrb.mRoom );
    if ( lUrb.mType == USBDEVFS_URB_TYPE_CONTROL )
    {
        Control( lUrb );
    }
    else if ( const int lError = TakeFailure( Request::TRANSFER ) )
    {
        return Fail( lError );
    }
    else if ( lUrb.mType != USBDEVFS_URB_TYPE_BULK ||
              aHost.mClaimed.count(
                  lUrb.mEndpoint == Simulators::EndpointU3V::STREAM_IN ? 1 : 0 ) == 0 )
    {
        return Fail( EINVAL ); // a host that does not claim what it uses
    }
    else if ( lUrb.mEndpoint == Simulators::EndpointU3V::CONTROL_OUT )
    {
        Send( lUrb );
    }
    else if ( lUrb.mEndpoint == Simulators::EndpointU3V::CONTROL_IN )
    {
        Receive( lUrb ); // what is there already comes before any time-out
    }
    aHost.mUrbs.push_back( std::move( lUrb ) );
    return {};
}

void VirtualUsbDevice::Implementation::Control( Urb& aUrb )
{
    constexpr size_t SETUP_SIZE = 8;
    constexpr uint8_t GET_DESCRIPTOR = 6;
    aUrb.mIsCompleted = true;
    aUrb.mStatus = -EPIPE;
    if ( aUrb.mRoom < SETUP_SIZE || aUrb.mBuffer == nullptr )
    {
        return;
    }
    const uint8_t* const lSetup = aUrb.mBuffer->data;
    if ( lSetup[0] != 0x80 || lSetup[1] != GET_DESCRIPTOR )
    {
        return;
    }
    auto lDescriptor =
        Simulators::GetDescriptor( mDevice.GetConfiguration(), lSetup[3], lSetup[2] );
    const bool lIsIdentity = lSetup[3] == DESCRIPTOR_STRING && lSetup[2] == IDENTITY_TEXT;
    if ( lIsIdentity && mIdentity == Identity::SILENT )
    {
        aUrb.mIsCompleted = false;
        return;
    }
    // String descriptors exist in one language only.
    const bool lIsForeign = lSetup[3] == DESCRIPTOR_STRING && lSetup[2] != 0 &&
                            ( lSetup[4] != 0x09 || lSetup[5] != 0x04 );
    if ( !lDescriptor.has_value() || lIsForeign ||
         ( lIsIdentity && mIdentity == Identity::STALLED ) )
    {
        return;
    }
    if ( lIsIdentity && mIdentity == Identity::MALFORMED )
    {
        lDescriptor->at( 1 ) = DESCRIPTOR_DEVICE;
    }
    const size_t lSize = std::min( lDescriptor->size(), aUrb.mRoom - SETUP_SIZE );
    PutBytes( aUrb.mBuffer.get(), SETUP_SIZE, lDescriptor->data(), lSize );
    aUrb.mStatus = 0;
    aUrb.mActual = static_cast<int>( lSize );
}

void VirtualUsbDevice::Implementation::Send( Urb& aUrb )
{
    const size_t lSize = aUrb.mRoom;
    const uint8_t* const lBytes = aUrb.mBuffer != nullptr ? aUrb.mBuffer->data : nullptr;
    const Ending lEnding = mDevice.Receive( lBytes, lSize, GetNowMs() );
    aUrb.mIsCompleted = true;
    aUrb.mStatus =
        lEnding == Ending::DONE ? 0 : ( lEnding == Ending::HALTED ? -EPIPE : -ESHUTDOWN );
    if ( lEnding == Ending::DONE )
    {
        aUrb.mActual = static_cast<int>( mCut.value_or( lSize ) );
        mCut.reset();
        mTransfers.push_back( { aUrb.mEndpoint, Bytes( lBytes, lBytes + lSize ), 0 } );
    }
}

void VirtualUsbDevice::Implementation::Receive( Urb& aUrb )
{
    if ( const int lError = TakeFailure( Request::FETCH ) )
    {
        aUrb.mIsCompleted = true;
        aUrb.mStatus = -lError;
        return;
    }
    const auto lStored = static_cast<size_t>( aUrb.mActual );
    const VirtualDeviceU3V::Fetched lFetched = mDevice.Fetch( aUrb.mRoom - lStored, GetNowMs() );
    if ( lFetched.mEnding == Ending::WAITING )
    {
        return;
    }
    aUrb.mIsCompleted = true;
    aUrb.mStatus = lFetched.mEnding == Ending::HALTED ? -EPIPE : -EOVERFLOW;
    if ( lFetched.mEnding == Ending::DONE )
    {
        aUrb.mStatus = 0;
        PutBytes( aUrb.mBuffer.get(), lStored, lFetched.mBytes.data(), lFetched.mBytes.size() );
        aUrb.mActual = static_cast<int>( lStored + lFetched.mBytes.size() );
        aUrb.mIsCompleted = !mAreTransfersOpen || aUrb.mActual == static_cast<int>( aUrb.mRoom );
        mTransfers.push_back(
            { aUrb.mEndpoint, lFetched.mBytes, static_cast<unsigned int>( aUrb.mRoom ) } );
    }
}

// Advances the requests of a host.
void VirtualUsbDevice::Implementation::Progress( Host& aHost )
{
    for ( Urb& lUrb : aHost.mUrbs )
    {
        if ( lUrb.mIsCompleted )
        {
            continue;
        }
        if ( mDevice.IsGone() || aHost.mIsGone )
        {
            lUrb.mIsCompleted = true;
            lUrb.mStatus = -ESHUTDOWN;
        }
        else if ( lUrb.mEndpoint == Simulators::EndpointU3V::CONTROL_IN )
        {
            Receive( lUrb );
        }
    }
}

Answer VirtualUsbDevice::Implementation::Reap( Host& aHost, UMockdevIoctlData* aArgument )
{
    Progress( aHost );
    const auto lUrb = std::find_if( aHost.mUrbs.begin(), aHost.mUrbs.end(),
                                    []( const Urb& aUrb ) { return aUrb.mIsCompleted; } );
    if ( lUrb == aHost.mUrbs.end() )
    {
        return Fail( mDevice.IsGone() || aHost.mIsGone ? ENODEV : EAGAIN );
    }
    PutBytes( lUrb->mData.get(), offsetof( usbdevfs_urb, status ), &lUrb->mStatus,
              sizeof( lUrb->mStatus ) );
    PutBytes( lUrb->mData.get(), offsetof( usbdevfs_urb, actual_length ), &lUrb->mActual,
              sizeof( lUrb->mActual ) );
    const DataPointer lPlace = Follow( aArgument, 0, sizeof( void* ) );
    umockdev_ioctl_data_set_ptr( lPlace.get(), 0, lUrb->mData.get() );
    aHost.mUrbs.erase( lUrb );
    return {};
}

Answer VirtualUsbDevice::Implementation::Discard( Host& aHost, UMockdevIoctlData* aArgument )
{
    const auto lAddress = GetRecord<unsigned long>( aArgument );
    const auto lUrb = std::find_if( aHost.mUrbs.begin(), aHost.mUrbs.end(),
                                    [lAddress]( const Urb& aUrb )
                                    { return aUrb.mData->client_addr == lAddress; } );
    if ( lUrb == aHost.mUrbs.end() || lUrb->mIsCompleted )
    {
        return Fail( EINVAL );
    }
    lUrb->mIsCompleted = true;
    lUrb->mStatus = -ENOENT;
    return {};
}

gboolean VirtualUsbDevice::Implementation::OnIoctl( UMockdevIoctlBase* /*aBase*/,
                                                    UMockdevIoctlClient* aClient, gpointer aDevice )
{
    if ( static_cast<Implementation*>( aDevice )->Hold( aClient ) )
    {
        return TRUE;
    }
    const Answer lAnswer = static_cast<Implementation*>( aDevice )->Handle( aClient );
    if ( lAnswer.mErrno == EAGAIN )
    {
        // The node is always writable, so that hosts ask without a pause.
        std::this_thread::sleep_for( std::chrono::microseconds( 200 ) );
    }
    umockdev_ioctl_client_complete( aClient, lAnswer.mResult, lAnswer.mErrno );
    return TRUE;
}

void VirtualUsbDevice::Implementation::OnVanished( UMockdevIoctlBase* /*aBase*/,
                                                   UMockdevIoctlClient* aClient, gpointer aDevice )
{
    ++gHandOver;
    static_cast<Implementation*>( aDevice )->Forget( aClient );
}

VirtualUsbDevice::VirtualUsbDevice( std::unique_ptr<Implementation> aThis )
    : mThis( std::move( aThis ) )
{
}

VirtualUsbDevice::~VirtualUsbDevice() = default;

const std::string& VirtualUsbDevice::GetPath() const
{
    return mThis->mPath;
}

const std::string& VirtualUsbDevice::GetNode() const
{
    return mThis->mNode;
}

void VirtualUsbDevice::Use( const std::function<void( VirtualDeviceU3V& )>& aUse )
{
    const std::lock_guard<std::mutex> lLock( mThis->mMutex );
    aUse( mThis->mDevice );
}

void VirtualUsbDevice::Inject( const FaultU3V& aFault )
{
    Use( [&aFault]( VirtualDeviceU3V& aDevice ) { aDevice.Inject( aFault ); } );
}

void VirtualUsbDevice::SetIdentity( Identity aIdentity )
{
    const std::lock_guard<std::mutex> lLock( mThis->mMutex );
    mThis->mIdentity = aIdentity;
}

void VirtualUsbDevice::FailNext( Request aRequest, int aErrno )
{
    const std::lock_guard<std::mutex> lLock( mThis->mMutex );
    mThis->mFailures.at( static_cast<size_t>( aRequest ) ) = aErrno;
}

void VirtualUsbDevice::CutCommand( unsigned int aSize )
{
    const std::lock_guard<std::mutex> lLock( mThis->mMutex );
    mThis->mCut = aSize;
}

void VirtualUsbDevice::LeaveTransfersOpen()
{
    const std::lock_guard<std::mutex> lLock( mThis->mMutex );
    mThis->mAreTransfersOpen = true;
}

void VirtualUsbDevice::Replug()
{
    const std::lock_guard<std::mutex> lLock( mThis->mMutex );
    mThis->mDevice = VirtualDeviceU3V( mThis->mDevice.GetConfiguration() );
    for ( auto& lHost : mThis->mHosts )
    {
        lHost.second.mIsGone = true;
        lHost.second.mClaimed.clear();
    }
}

void VirtualUsbDevice::HoldReleases()
{
    const std::lock_guard<std::mutex> lLock( mThis->mMutex );
    mThis->mIsHoldingReleases = true;
}

void VirtualUsbDevice::LetReleasesGo()
{
    mThis->LetReleasesGo();
}

bool VirtualUsbDevice::WaitForRelease() const
{
    return WaitFor(
        [this]
        {
            const std::lock_guard<std::mutex> lLock( mThis->mMutex );
            return !mThis->mReleasing.empty();
        } );
}

void VirtualUsbDevice::BindDriver()
{
    const std::lock_guard<std::mutex> lLock( mThis->mMutex );
    mThis->mIsDriverBound = true;
}

bool VirtualUsbDevice::IsDriverBound() const
{
    const std::lock_guard<std::mutex> lLock( mThis->mMutex );
    return mThis->mIsDriverBound;
}

unsigned int VirtualUsbDevice::GetClaims() const
{
    const std::lock_guard<std::mutex> lLock( mThis->mMutex );
    return static_cast<unsigned int>(
        std::count_if( mThis->mHosts.begin(), mThis->mHosts.end(),
                       []( const auto& aHost )
                       { return aHost.second.mClaimed.count( CONTROL_INTERFACE ) != 0; } ) );
}

unsigned int VirtualUsbDevice::GetClears() const
{
    const std::lock_guard<std::mutex> lLock( mThis->mMutex );
    return mThis->mClears;
}

unsigned int VirtualUsbDevice::GetReaders() const
{
    const std::lock_guard<std::mutex> lLock( mThis->mMutex );
    unsigned int lCount = 0;
    for ( const auto& lHost : mThis->mHosts )
    {
        for ( const Urb& lUrb : lHost.second.mUrbs )
        {
            const bool lReads = lUrb.mEndpoint == Simulators::EndpointU3V::CONTROL_IN;
            lCount += lReads && !lUrb.mIsCompleted ? 1 : 0;
        }
    }
    return lCount;
}

bool VirtualUsbDevice::WaitForReader() const
{
    return WaitFor( [this] { return GetReaders() != 0; } );
}

std::vector<VirtualUsbDevice::Transfer> VirtualUsbDevice::GetTransfers() const
{
    const std::lock_guard<std::mutex> lLock( mThis->mMutex );
    return mThis->mTransfers;
}

class VirtualUsbBus::Implementation
{
public:
    std::string AddToSystem( const std::string& aName, const std::string& aParent,
                             const Bytes& aDescriptors );
    std::shared_ptr<VirtualUsbDevice> Plug( const ConfigurationU3V& aConfiguration,
                                            const std::string& aPath, const std::string& aParent,
                                            const Bytes& aInterface = {} );
    void Detach( const std::shared_ptr<VirtualUsbDevice>& aDevice );

    UMockdevTestbed* mTestbed = nullptr;
    int mLastAddress = 0;
    std::string mRootHub;
    std::map<std::string, std::string> mHubs; // system path by name
    std::vector<std::shared_ptr<VirtualUsbDevice>> mDevices;
};

namespace
{

Bytes MakeHubDescriptors()
{
    return { 18, 1, 0x00, 0x03, 9, 0, 3, 9,    0x6B, 0x1D, 3, 0, 0, 1, 0, 0, 0, 1, // device
             9,  2, 25,   0,    1, 1, 0, 0xE0, 0,                                  // configuration
             9,  4, 0,    0,    1, 9, 0, 0,    0,                                  // interface
             7,  5, 0x81, 3,    4, 0, 12 };                                        // endpoint
}

// The configuration with one more interface, before the others.
Bytes PutInFront( const Bytes& aInterface, Bytes aConfiguration )
{
    constexpr std::ptrdiff_t HEADER_SIZE = 9;
    aConfiguration.insert( aConfiguration.begin() + HEADER_SIZE, aInterface.begin(),
                           aInterface.end() );
    aConfiguration[2] = static_cast<uint8_t>( aConfiguration.size() & 0xFF );
    aConfiguration[3] = static_cast<uint8_t>( aConfiguration.size() >> 8 );
    aConfiguration[4] = static_cast<uint8_t>( aConfiguration[4] + ( aInterface.empty() ? 0 : 1 ) );
    return aConfiguration;
}

std::string FormatHex( const Bytes& aBytes )
{
    std::string lText;
    for ( const uint8_t lByte : aBytes )
    {
        char lDigits[4];
        std::snprintf( lDigits, sizeof( lDigits ), "%02X", lByte );
        lText += lDigits;
    }
    return lText;
}

std::string FormatNode( int aAddress )
{
    char lText[32];
    std::snprintf( lText, sizeof( lText ), "/dev/bus/usb/001/%03d", aAddress );
    return lText;
}

} // namespace

// Gives the path in the emulated system.
std::string VirtualUsbBus::Implementation::AddToSystem( const std::string& aName,
                                                        const std::string& aParent,
                                                        const Bytes& aDescriptors )
{
    const int lAddress = ++mLastAddress;
    const std::string lNumber = std::to_string( lAddress );
    const std::string lNode = FormatNode( lAddress );
    const std::string lPath = ( aParent.empty() ? "/sys/devices" : aParent ) + "/" + aName;
    std::string lText = "P: " + lPath.substr( std::strlen( "/sys" ) ) + "\n";
    lText += "N: " + lNode.substr( std::strlen( "/dev/" ) ) + "\n";
    lText += "E: SUBSYSTEM=usb\nE: DEVTYPE=usb_device\nE: DEVNAME=" + lNode + "\n";
    lText += "E: BUSNUM=001\nE: DEVNUM=" + lNumber + "\nE: MAJOR=189\nE: MINOR=" + lNumber + "\n";
    // A line end of the attribute's own follows its text.
    lText += "A: busnum=1\\n\nA: devnum=" + lNumber + "\\n\nA: speed=5000\\n\n";
    lText += "A: bConfigurationValue=1\\n\nA: bNumConfigurations=1\\n\n";
    lText += "H: descriptors=" + FormatHex( aDescriptors ) + "\n";
    GError* lError = nullptr;
    if ( umockdev_testbed_add_from_string( mTestbed, lText.c_str(), &lError ) == 0 )
    {
        std::fprintf( stderr, "cannot emulate %s: %s\n", lPath.c_str(), lError->message );
        std::abort();
    }
    return lPath;
}

std::shared_ptr<VirtualUsbDevice>
VirtualUsbBus::Implementation::Plug( const ConfigurationU3V& aConfiguration,
                                     const std::string& aPath, const std::string& aParent,
                                     const Bytes& aInterface )
{
    auto lState = std::make_unique<VirtualUsbDevice::Implementation>( aConfiguration, aPath );
    Bytes lDescriptors = *Simulators::GetDescriptor( aConfiguration, DESCRIPTOR_DEVICE, 0 );
    const Bytes lMore = PutInFront(
        aInterface, *Simulators::GetDescriptor( aConfiguration, DESCRIPTOR_CONFIGURATION, 0 ) );
    lDescriptors.insert( lDescriptors.end(), lMore.begin(), lMore.end() );
    lState->mHandler = umockdev_ioctl_base_new();
    g_signal_connect( lState->mHandler, "handle-ioctl",
                      G_CALLBACK( VirtualUsbDevice::Implementation::OnIoctl ), lState.get() );
    g_signal_connect( lState->mHandler, "client-vanished",
                      G_CALLBACK( VirtualUsbDevice::Implementation::OnVanished ), lState.get() );
    const std::string lNode = FormatNode( mLastAddress + 1 );
    lState->mSysPath = AddToSystem( aPath, aParent, lDescriptors );
    gchar* const lRoot = umockdev_testbed_get_root_dir( mTestbed );
    lState->mNode = lRoot + lNode;
    g_free( lRoot );
    ++gHandOver;
    GError* lError = nullptr;
    if ( umockdev_testbed_attach_ioctl( mTestbed, lNode.c_str(), lState->mHandler, &lError ) == 0 )
    {
        std::fprintf( stderr, "cannot emulate %s: %s\n", lNode.c_str(), lError->message );
        std::abort();
    }
    const std::shared_ptr<VirtualUsbDevice> lDevice( new VirtualUsbDevice( std::move( lState ) ) );
    mDevices.push_back( lDevice );
    umockdev_testbed_uevent( mTestbed, lDevice->mThis->mSysPath.c_str(), "add" );
    return lDevice;
}

void VirtualUsbBus::Implementation::Detach( const std::shared_ptr<VirtualUsbDevice>& aDevice )
{
    VirtualUsbDevice::Implementation& lState = *aDevice->mThis;
    const std::string lNode = lState.mNode.substr( lState.mNode.find( "/dev/bus/usb/" ) );
    umockdev_testbed_detach_ioctl( mTestbed, lNode.c_str(), nullptr );
    g_signal_handlers_disconnect_by_data( lState.mHandler, &lState );
    g_object_unref( lState.mHandler );
    lState.mHandler = nullptr;
    const std::lock_guard<std::mutex> lLock( lState.mMutex ); // its thread has ended
}

VirtualUsbBus::VirtualUsbBus()
    : mThis( std::make_unique<Implementation>() )
{
    mThis->mTestbed = umockdev_testbed_new();
    mThis->mRootHub = mThis->AddToSystem( "usb1", "", MakeHubDescriptors() );
}

VirtualUsbBus::~VirtualUsbBus()
{
    for ( const std::shared_ptr<VirtualUsbDevice>& lDevice : mThis->mDevices )
    {
        mThis->Detach( lDevice );
    }
    g_object_unref( mThis->mTestbed );
}

std::shared_ptr<VirtualUsbDevice> VirtualUsbBus::Plug( const ConfigurationU3V& aConfiguration,
                                                       unsigned int aPort, const Bytes& aInterface )
{
    return mThis->Plug( aConfiguration, "1-" + std::to_string( aPort ), mThis->mRootHub,
                        aInterface );
}

std::shared_ptr<VirtualUsbDevice>
VirtualUsbBus::PlugBehindHub( const ConfigurationU3V& aConfiguration, unsigned int aHubPort,
                              unsigned int aPort )
{
    const std::string lHub = "1-" + std::to_string( aHubPort );
    if ( mThis->mHubs.count( lHub ) == 0 )
    {
        mThis->mHubs[lHub] = mThis->AddToSystem( lHub, mThis->mRootHub, MakeHubDescriptors() );
    }
    return mThis->Plug( aConfiguration, lHub + "." + std::to_string( aPort ), mThis->mHubs[lHub] );
}

void VirtualUsbBus::Unplug( const std::shared_ptr<VirtualUsbDevice>& aDevice )
{
    aDevice->Use( []( VirtualDeviceU3V& aSimulated ) { aSimulated.Unplug(); } );
    const std::string& lPath = aDevice->mThis->mSysPath;
    umockdev_testbed_uevent( mThis->mTestbed, lPath.c_str(), "remove" );
    umockdev_testbed_remove_device( mThis->mTestbed, lPath.c_str() );
}

void RunInVirtualUsb( char** aArguments )
{
    constexpr char MARK[] = "HTBASE_TEST_VIRTUAL_USB";
    constexpr char LIBRARY[] = "libumockdev-preload.so.0";
    if ( void* const lLoaded = dlopen( LIBRARY, RTLD_LAZY | RTLD_NOLOAD ) )
    {
        dlclose( lLoaded );
        return;
    }
    if ( std::getenv( MARK ) != nullptr )
    {
        std::fprintf( stderr, "%s could not be loaded\n", LIBRARY );
        std::exit( EXIT_FAILURE );
    }
    setenv( MARK, "1", 1 );
    setenv( "LD_PRELOAD", LIBRARY, 1 );
    // A sanitizer that is a library of its own would insist on being the first.
    const char* const lOptions = std::getenv( "ASAN_OPTIONS" );
    const std::string lMore = std::string( lOptions != nullptr ? lOptions : "" ) +
                              ( lOptions != nullptr ? ":" : "" ) + "verify_asan_link_order=0";
    setenv( "ASAN_OPTIONS", lMore.c_str(), 1 );
    execv( "/proc/self/exe", aArguments );
    std::perror( "/proc/self/exe" );
    std::exit( EXIT_FAILURE );
}

bool WriteUsbCapture( const std::string& aPath,
                      const std::vector<VirtualUsbDevice::Transfer>& aTransfers )
{
    constexpr size_t HEADER_SIZE = 64;
    constexpr uint8_t ADDRESS = 2;
    Bytes lFile;
    AppendLittle( lFile, 0xA1B2C3D4, 4 );
    AppendLittle( lFile, 2, 2 );
    AppendLittle( lFile, 4, 2 );
    AppendLittle( lFile, 0, 8 );
    AppendLittle( lFile, 0x40000, 4 );
    AppendLittle( lFile, 220, 4 );
    uint32_t lSecond = 0;
    for ( const VirtualUsbDevice::Transfer& lTransfer : aTransfers )
    {
        const bool lIsIn = ( lTransfer.mEndpoint & 0x80 ) != 0;
        const size_t lSize = lTransfer.mBytes.size();
        ++lSecond;
        AppendLittle( lFile, lSecond, 4 );
        AppendLittle( lFile, 0, 4 );
        AppendLittle( lFile, HEADER_SIZE + lSize, 4 );
        AppendLittle( lFile, HEADER_SIZE + lSize, 4 );
        const size_t lStart = lFile.size();
        AppendLittle( lFile, lSecond, 8 ); // identifier
        AppendLittle( lFile, static_cast<uint8_t>( lIsIn ? 'C' : 'S' ), 1 );
        AppendLittle( lFile, 3, 1 ); // bulk
        AppendLittle( lFile, lTransfer.mEndpoint, 1 );
        AppendLittle( lFile, ADDRESS, 1 );
        AppendLittle( lFile, 1, 2 );   // bus
        AppendLittle( lFile, '-', 1 ); // no setup packet
        AppendLittle( lFile, 0, 1 );   // with data
        AppendLittle( lFile, lSecond, 8 );
        AppendLittle( lFile, 0, 4 );
        AppendLittle( lFile, lIsIn ? 0 : 0xFFFFFF8D, 4 ); // status, -EINPROGRESS
        AppendLittle( lFile, lSize, 4 );
        AppendLittle( lFile, lSize, 4 ); // captured
        lFile.resize( lStart + HEADER_SIZE, 0 );
        lFile.insert( lFile.end(), lTransfer.mBytes.begin(), lTransfer.mBytes.end() );
    }
    std::ofstream lStream( aPath, std::ios::binary );
    lStream.write( reinterpret_cast<const char*>( lFile.data() ),
                   static_cast<std::streamsize>( lFile.size() ) );
    return lStream.good();
}

} // namespace TestSupport
