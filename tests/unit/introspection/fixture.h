#pragma once

#include "apps/common/event/serverconnection.h"
#include "apps/common/introspection/introspection.h"
#include "tests/unit/diagnostics/logcapture.h"

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <vector>

/// The memories as heap blocks of exactly their sizes, so that a sanitizer detects every access outside.
class Memories {
public:
    Memories() {
        for (const MemoryDescriptor& memory : MEMORY_ARRAY)
            *memory.basePointer = blocks_.emplace_back(std::make_unique<char[]>(memory.size)).get();
    }
    ~Memories() {
        for (const MemoryDescriptor& memory : MEMORY_ARRAY)
            *memory.basePointer = nullptr;
    }
    Memories(const Memories&) = delete;
    Memories& operator=(const Memories&) = delete;

    char* base(std::uint32_t mem) { return blocks_[mem].get(); }
    std::string bytes(std::uint32_t mem) const { return {blocks_[mem].get(), MEMORY_ARRAY[mem].size}; }

private:
    std::vector<std::unique_ptr<char[]>> blocks_;
};

/// The process's connection, with the test as broker at its other end.
class PostedEvents {
public:
    PostedEvents() {
        int ends[2];
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
        broker_ = Descriptor(ends[1]);
        gServerConnection = &connection_.emplace(poll_, ends[0]);
    }
    ~PostedEvents() { gServerConnection = nullptr; }

    /// The records posted since the last call.
    std::vector<Notify> take() const {
        std::vector<Notify> records(64);
        const ssize_t size = recv(broker_.get(), records.data(), 64 * sizeof(Notify), MSG_DONTWAIT);
        records.resize(size < 0 ? 0 : static_cast<std::size_t>(size) / sizeof(Notify));
        return records;
    }

private:
    EventPoll poll_;
    std::optional<ServerConnection> connection_;
    Descriptor broker_;
};

/// A variable of the catalogue by name.
struct Variable {
    std::uint32_t mem = 0;
    std::uint32_t var = 0;

    explicit Variable(const std::string& name) {
        for (mem = 0; mem < MEMORY_ARRAY_SIZE; ++mem) {
            for (var = 0; var < MEMORY_ARRAY[mem].count; ++var)
                if (name == row().name)
                    return;
        }
        throw std::runtime_error("no variable " + name);
    }
    VariableDescriptor& row() const { return MEMORY_ARRAY[mem].variables[var]; }
};

/// Mapped memories, a connection and a quiet kernel log.
class MappedCatalogue : public testing::Test {
protected:
    std::string set(const Variable& variable, const char* value) {
        return Introspection::setVarValue(variable.mem, variable.var, value);
    }
    std::string get(const Variable& variable, int index = 0) {
        return Introspection::getVarValue(variable.mem, variable.var, index);
    }
    char* address(const Variable& variable) { return memories.base(variable.mem) + variable.row().location; }
    std::size_t posts() { return events.take().size(); }

    LogCapture log;
    Memories memories;
    PostedEvents events;
};
