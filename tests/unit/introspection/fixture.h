#pragma once

#include "apps/common/event/serverconnection.h"
#include "apps/common/introspection/introspection.h"
#include "tests/unit/diagnostics/logcapture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <memory>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

/// The memories as heap blocks of exactly their sizes, so that a sanitizer sees every byte outside.
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

/// Stands in for the broker at the other end of the process's connection.
class PostedEvents {
public:
    PostedEvents() { gServerConnection = &connection_; }
    ~PostedEvents() {
        gServerConnection = nullptr;
        close(ends_[1]);
    }
    PostedEvents(const PostedEvents&) = delete;
    PostedEvents& operator=(const PostedEvents&) = delete;

    /// The records posted since the last call.
    std::vector<Notify> take() const {
        std::vector<Notify> records(64);
        const ssize_t size = recv(ends_[1], records.data(), records.size() * sizeof(Notify), MSG_DONTWAIT);
        records.resize(size < 0 ? 0 : static_cast<std::size_t>(size) / sizeof(Notify));
        return records;
    }

private:
    static std::array<int, 2> connectedPair() {
        std::array<int, 2> ends{};
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), 0);
        return ends;
    }

    EventPoll poll_;
    std::array<int, 2> ends_ = connectedPair();
    ServerConnection connection_{poll_, ends_[0]};
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
