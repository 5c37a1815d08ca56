#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

// The messages between the application and its crash handler program over
// a local sequenced-packet socket: one message per packet. Free of Qt and of
// allocation on the sending side of a crash, so that a signal handler can
// fill and send a CrashMessage.
namespace CrashReport::Protocol {

inline constexpr uint32_t kMagic = 0x52434c47; // "GLCR"

inline constexpr uint32_t kVersion = 1;

enum class MessageType : uint32_t {
    Setting = 1, // application -> program: one value of the report context
    Crash = 2,   // application -> program: a thread crashed, report it
    Done = 3,    // program -> application: the report is finished
    Goodbye = 4, // application -> program: clean exit, nothing to report
};

enum class SettingKey : uint32_t {
    LogPath = 1,
    UploadUrl = 2,
    UserId = 3,
    StateDir = 4,
    Description = 5,
};

struct Header
{
    uint32_t magic = kMagic;
    uint32_t version = kVersion;
    uint32_t type = 0;
    uint32_t key = 0;    // SettingKey for settings
    uint32_t length = 0; // bytes after the header
};

// Registers of the crashing thread in DWARF numbering (x86-64: rax, rdx,
// rcx, rbx, rsi, rdi, rbp, rsp, r8-r15, then the instruction pointer).
inline constexpr int kRegisterCount = 17;
inline constexpr int kReasonSize = 512;

struct CrashMessage
{
    Header header;
    int32_t threadId = 0;
    int32_t signal = 0;
    int32_t code = 0;         // si_code
    int32_t hasRegisters = 0; // 0 when the context could not be read
    uint64_t faultAddress = 0;
    uint64_t registers[kRegisterCount] = {};
    uint64_t flags = 0;            // the flags register
    char reason[kReasonSize] = {}; // text for terminate and new-handler crashes
};

struct DoneMessage
{
    Header header;
    int32_t sent = 0; // 1 when the upload succeeded
};

// The largest packet either side accepts; settings longer than this are cut.
inline constexpr size_t kMaxPacket = 128 * 1024;

// One setting as a packet: the header and the UTF-8 value.
inline std::string encodeSetting(SettingKey key, const std::string &value)
{
    Header header;
    header.type = uint32_t(MessageType::Setting);
    header.key = uint32_t(key);
    const size_t length =
        value.size() < kMaxPacket - sizeof(Header) ? value.size() : kMaxPacket - sizeof(Header);
    header.length = uint32_t(length);
    std::string packet(reinterpret_cast<const char *>(&header), sizeof header);
    packet.append(value, 0, length);
    return packet;
}

// The contents of the state file that the next start reads.
inline constexpr const char kStateCrashed[] = "crashed\n";
inline constexpr const char kStateSent[] = "sent\n";
inline constexpr const char kStateNotSent[] = "not sent\n";
inline constexpr const char kStateFileName[] = "crash-state";
inline constexpr const char kDumpFileName[] = "last-crash.dump";

} // namespace CrashReport::Protocol
