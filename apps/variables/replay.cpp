#include "apps/common/introspection/store.h"
#include "apps/common/values/excerpt.h"
#include "apps/variables/commands.h"
#include "apps/variables/connection.h"
#include "apps/variables/recording/reader.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <stdexcept>
#include <thread>

namespace {

using recording::Entry;
using recording::Reader;
using recording::Recorded;
using std::chrono::microseconds;
using Steady = std::chrono::steady_clock;

constexpr std::chrono::milliseconds TURN{1000};
constexpr std::chrono::milliseconds PAUSE{100}; // before a recording starts again
constexpr std::chrono::seconds SEND_LIMIT{30};
// A replay that is later than this stays late: what followed after a while is never stored in one go, so that
// other processes can read each value.
constexpr std::chrono::milliseconds LATENESS{1};
constexpr std::size_t WORD = 4;
constexpr std::size_t SHOWN_BYTES = 100; // of a variable's description
constexpr double LONGEST_MICROSECONDS = 1e15;

// Reads the whole recording. Returns the number of its entries up to `from`, which includes the start values.
// Throws std::runtime_error before anything is stored if the recording cannot be played.
std::uint64_t check(Reader& reader, const ReplayOptions& options) {
    const std::size_t count = reader.variables().size();
    std::uint64_t entries = 0;
    std::uint64_t early = 0;
    for (Entry entry; reader.next(entry); ++entries) {
        if (entries < count && (entry.number != entries || entry.time.count() != 0))
            throw std::runtime_error(options.file + ": the recording has no start values");
        early += entry.time <= options.from ? 1 : 0;
    }
    if (reader.isDamaged())
        throw std::runtime_error(options.file + ": the recording is damaged after " +
                                 std::to_string(entries) + " entries");
    if (entries < count)
        throw std::runtime_error(options.file + ": the recording ends before its start values");
    if (reader.isTruncated())
        std::fprintf(stderr, "variables: %s is truncated; it plays up to its last whole entry\n",
                     options.file.c_str());
    return early;
}

// Nothing in a file changes the terminal's state.
std::string printable(std::string text) {
    std::replace_if(
        text.begin(), text.end(), [](char c) { return c < ' ' || c > '~'; }, '?');
    return text;
}

void listMissing(const Reader& reader) {
    if (!reader.isOfThisCatalogue())
        std::fputs("variables: The recording was made with another catalogue\n", stderr);
    for (const Recorded& recorded : reader.variables())
        if (!recorded.variable)
            std::fprintf(stderr, "variables: not played, because this device does not have it: %s\n",
                         printable(excerpt(recorded.description, SHOWN_BYTES)).c_str());
}

// Stores words by themselves, so that other processes read the old or the new value of a number. Returns
// whether anything has changed.
bool storeValue(const Recorded& recorded) {
    const VariableDescriptor& variable = recorded.variable->descriptor();
    char* const target = *variable.memory + variable.location;
    bool isChanged = false;
    for (std::size_t at = 0, size; at < recorded.value.size(); at += size) {
        const bool isWord =
            reinterpret_cast<std::uintptr_t>(target + at) % WORD == 0 && recorded.value.size() - at >= WORD;
        size = isWord ? WORD : 1;
        isChanged |= storeIfChanged(target + at, recorded.value.data() + at, size);
    }
    return isChanged;
}

Steady::duration scaled(microseconds time, double speed) {
    return std::chrono::duration_cast<Steady::duration>(std::chrono::duration<double, std::micro>(
        std::min(static_cast<double>(time.count()) / speed, LONGEST_MICROSECONDS)));
}

// Returns false if the process has to terminate before that.
bool waitUntil(Steady::time_point due) {
    for (Steady::duration left; (left = due - Steady::now()).count() > 0 && !EventPoll::shouldTerminate();) {
        const auto whole =
            std::chrono::floor<std::chrono::milliseconds>(std::min<Steady::duration>(left, TURN));
        if (whole.count() > 0)
            gen::getEventPoll().wait(static_cast<int>(whole.count()), false);
        else
            std::this_thread::sleep_for(left);
    }
    return !EventPoll::shouldTerminate();
}

// Values that the device has already are not stored, and their events not posted.
void storeStart(const Reader& reader) {
    for (const Recorded& recorded : reader.variables())
        if (recorded.variable && storeValue(recorded))
            postEvent(recorded.variable->descriptor().event);
}

// Posts each event, also of a value that the device has already. Returns false if the process has to
// terminate.
bool play(Reader& reader, const Connection& connection, const ReplayOptions& options, std::uint64_t early) {
    Entry entry;
    reader.rewind();
    for (std::uint64_t i = 0; i < early; ++i)
        reader.next(entry);
    storeStart(reader);
    Steady::time_point start = Steady::now();
    while (reader.next(entry) && (!options.to || entry.time <= *options.to)) {
        const Recorded& recorded = reader.variables()[entry.number];
        const Steady::time_point due = start + scaled(entry.time - options.from, options.speed);
        if (!waitUntil(due))
            return false;
        connection.requireOpen();
        start += std::max(Steady::now() - due - LATENESS, Steady::duration(0));
        if (!recorded.variable)
            continue;
        storeValue(recorded);
        postEvent(entry.event);
    }
    return true;
}

} // namespace

int replay(const ReplayOptions& options) {
    if (options.to && *options.to < options.from)
        throw std::runtime_error("--to is before --from");
    Reader reader(options.file);
    const std::uint64_t early = check(reader, options);
    listMissing(reader);
    Connection connection;
    if (!connection.isVirtualDevice() && !options.isConfirmed)
        throw std::runtime_error("This is a real device: --yes stores the recording's values on it");
    connection->sendLimit = SEND_LIMIT;
    std::printf("Playing %s\n", options.file.c_str());
    std::fflush(stdout);
    try {
        while (play(reader, connection, options, early) && options.isLoop &&
               waitUntil(Steady::now() + PAUSE)) {
        }
    } catch (const std::runtime_error&) {
        if (!EventPoll::shouldTerminate()) // a signal also ends the wait for a broker that does not read
            throw;
    }
    return 0;
}
