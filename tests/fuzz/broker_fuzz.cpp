#include "apps/common/values/variablejson.h"
#include "apps/web/service/variables/updatepolls.h"
#include "apps/web/service/variables/variabletree.h"
#include "target.h"
#include "tests/unit/service/exchange.h"

#include <set>

// Records of the broker while another process writes: a waiting request gets the present values. Input: a
// byte that holds the length of the broker's bytes, these bytes, then writes: memory, offset, length, bytes.

namespace {

constexpr std::size_t LONGEST_READ = 96;     // of the broker's bytes: eight records
constexpr std::uint32_t LONGEST_LIST = 4096; // in bytes; longer ones only take longer

const VariableDescriptor& variableOf(std::uint32_t id, unsigned int& mem, unsigned int& var) {
    Introspection::getVarLocation({id, 0, 0}, mem, var);
    return Introspection::getVarDescriptor(mem, var);
}

std::string literalValue(std::uint32_t id) {
    unsigned int mem = 0;
    unsigned int var = 0;
    const VariableDescriptor& variable = variableOf(id, mem, var);
    std::string value = "\"" + std::string(variable.name) + "\" : ";
    appendVariable(value, mem, var, *variable.memory);
    return value;
}

// Passes the events on and collects the ids of known ones.
struct Collector : ServerConnection::EventHandler {
    VariableTree tree;
    UpdatePolls polls{tree};
    std::size_t count = 0;
    std::set<std::uint32_t> changed;

    void handleEvent(const Notify& event) override {
        unsigned int place = 0;
        ++count;
        if (isKnownEvent(event) && variableOf(event.id, place, place).size > LONGEST_LIST)
            return;
        polls.handleEvent(event);
        if (event.id < EVENT_COUNT)
            changed.insert(event.id);
    }
};

// Another process's connection to the service.
struct Broker {
    EventPoll poll;
    int ends[2]{};
    std::optional<ServerConnection> connection;

    explicit Broker(ServerConnection::EventHandler& handler) {
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
        connection.emplace(poll, ends[0]);
        connection->handler = &handler;
        connection->subscribeAll();
        connection->subscribe({gen::EventId::VarDisplayBrightnessChanged, 0, 0});
    }
    ~Broker() {
        connection->handler = nullptr; // the event is logged
        send("twelve bytes");
        close(ends[1]);
        EXPECT_EQ(poll.wait(0, true), EventPoll::Dispatched);
        EXPECT_FALSE(connection->isOpen());
    }

    void send(std::string_view bytes) {
        EXPECT_EQ(::send(ends[1], bytes.data(), bytes.size(), MSG_NOSIGNAL), std::ssize(bytes));
        EXPECT_EQ(poll.wait(0, true), bytes.empty() ? EventPoll::Timeout : EventPoll::Dispatched);
        EXPECT_TRUE(connection->isOpen());
    }
};

void write(Memories& memories, std::string_view& input) {
    const std::uint32_t mem = takeNumber<std::uint8_t>(input) % MEMORY_ARRAY_SIZE;
    const std::size_t offset = takeNumber<std::uint16_t>(input) % MEMORY_ARRAY[mem].size;
    const std::string_view bytes = take(input, takeNumber<std::uint8_t>(input));
    bytes.copy(memories.base(mem) + offset, MEMORY_ARRAY[mem].size - offset);
}

} // namespace

void handle(std::string_view input) {
    static Exchange exchange;
    static Collector collector;
    static Broker broker(collector);
    collector.count = 0;
    collector.changed.clear();
    const std::string_view bytes = take(input, takeNumber<std::uint8_t>(input) % (LONGEST_READ + 1));
    broker.send(bytes);
    EXPECT_EQ(collector.count, bytes.size() / sizeof(Notify));
    while (!input.empty())
        write(exchange.memories, input);
    exchange.request->begin(1, true);
    UpdatePolls::hold(*exchange.request);
    collector.polls.answer({{0, &*exchange.request}});
    const std::string answer = exchange.answer();
    exchange.events.take();
    for (const std::uint32_t id : collector.changed)
        EXPECT_NE(answer.find(literalValue(id)), std::string::npos) << id;
    for (const MemoryDescriptor& memory : MEMORY_ARRAY)
        std::memset(*memory.basePointer, 0, memory.size);
}
