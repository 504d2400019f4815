#include "apps/web/service/request.h"

#include "records.h"

#include <gmock/gmock.h>
#include <random>

namespace {

using namespace records;
using testing::HasSubstr;

class RequestTest : public ListenerTest {};

TEST_F(RequestTest, AnswerHasDefaultHeaderAndEchoesVersionAndId) {
    answer_ = [](Request& request) {
        request.output() << "{}";
        request.error() << "oops";
        request.end();
    };
    std::string input = request("/x", "", false, 0x1234);
    for (const std::size_t at : {0U, 16U}) // the headers of BEGIN_REQUEST and PARAMS
        input[at] = '\2';
    input[input.size() - 8] = '\0'; // version of the last record, which is the one echoed
    EXPECT_EQ(received(send(input)), std::string("\0\6\x12\x34\0\x24\4\0", 8) +
                                         "Content-type: application/json\r\n\r\n{}" + std::string(4, '\0') +
                                         std::string("\0\7\x12\x34\0\4\4\0oops", 12) + std::string(4, '\0') +
                                         std::string("\0\3\x12\x34\0\10\0\0", 8) + std::string(8, '\0'));
}

TEST_F(RequestTest, ReadsTheSameFromAnyPieces) {
    const std::string input = request("/api", "body", true);
    std::vector<std::string> bodies;
    answer_ = [&](Request& request) {
        bodies.push_back(request.param("SCRIPT_NAME") + " " + request.postData());
        request.end();
    };
    const int client = send("");
    for (std::size_t cut = 0; cut <= input.size(); ++cut) {
        send(client, input.substr(0, cut));
        send(client, input.substr(cut));
        ASSERT_EQ(received(client), END_RECORD) << cut;
    }
    EXPECT_EQ(bodies, std::vector<std::string>(input.size() + 1, "/api body"));
}

TEST_F(RequestTest, SurvivesFlippedBits) {
    const std::string input = request("/api/v1/set.cgi", R"({"M":{"V":1}})", true);
    const std::ptrdiff_t before = openDescriptors();
    std::mt19937 random(2);
    for (std::size_t bit = 0; bit < input.size() * 8; ++bit) {
        std::string bytes = input;
        bytes[bit / 8] = static_cast<char>(bytes[bit / 8] ^ (1 << bit % 8));
        bytes[random() % bytes.size()] = static_cast<char>(random());
        drop(send(bytes));
        fcgi_.cleanup();
        ASSERT_EQ(openDescriptors(), before) << bit;
    }
    EXPECT_EQ(received(send(request("/x"))), END_RECORD);
}

TEST_F(RequestTest, KeptConnectionTakesTheNextRequest) {
    std::vector<std::string> bodies;
    answer_ = [&](Request& request) {
        bodies.push_back(request.postData() + request.param("SCRIPT_NAME"));
        request.context = 0;
        request.end();
    };
    const std::string first(1000, 'f');
    EXPECT_EQ(received(send(request("/a", first, true) + request("/b", "", true))), END_RECORD + END_RECORD);
    EXPECT_THAT(bodies, testing::ElementsAre(first + "/a", "/b"));
    EXPECT_LT(request_->postData().capacity(), first.size()) << "a kept connection keeps no body";
    EXPECT_TRUE(request_->isFinished() && !request_->isClosed());
    EXPECT_FALSE(request_->context.has_value()) << "an answered request waits no longer";
}

TEST_F(RequestTest, NextRequestOfAConnectionEndsItsWaiting) {
    const std::string next = request("/x", "", true);
    const int client = send(request("/wait", "", true));
    EXPECT_TRUE(request_->context.has_value());
    send(client, next.substr(0, 20));
    EXPECT_FALSE(request_->context.has_value());
    send(client, next.substr(20));
    EXPECT_EQ(received(client), END_RECORD);
}

TEST_F(RequestTest, OutputIsSentInRecordsWithoutPadding) {
    const int client = send("");
    answer_ = [&](Request& request) {
        request.writeHeader("");
        request.output() << std::string(8192, 'x');
        request.output() << 'y';
        EXPECT_EQ(received(client), "");
        request.output() << std::string(65529, 'z');
        EXPECT_EQ(received(client).size(), 8u + 8193 + 7);
        request.end();
    };
    send(client, request("/x"));
    EXPECT_EQ(received(client), std::string("\1\6\0\1\xff\xf8\0\0", 8) + std::string(65528, 'z') +
                                    std::string("\1\6\0\1\0\1\7\0z\0\0\0\0\0\0\0", 16) + END_RECORD);
}

TEST_F(RequestTest, EndOfFileCountsAsHangUp) {
    answer_ = [](Request& request) { request.context = 0; };
    const int client = send(request("/x"));
    EXPECT_FALSE(request_->isFinished());
    shutdown(client, SHUT_WR); // on TCP a closed connection shows only end of file
    turn();
    EXPECT_TRUE(request_->isClosed());
    EXPECT_FALSE(request_->context.has_value());
}

TEST_F(RequestTest, PeerThatDisconnectsDuringItsAnswerLosesOnlyThat) {
    answer_ = [this](Request& request) {
        shutdown(clients_.back(), SHUT_RDWR);
        request.output() << std::string(1 << 20, 'x');
        request.end();
        EXPECT_TRUE(request.isClosed()) << "after a partial record the connection is unusable";
    };
    send(request("/x", "", true));
    EXPECT_NE(request_, nullptr);
}

TEST_F(RequestTest, ReadsOneRecordAtATimeByItself) {
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
    Request request(&fcgi_, ends[0], 7);
    clients_.push_back(ends[1]);
    EXPECT_FALSE(request.readRecord());
    const std::string bytes = records::request("/x", "body");
    send(ends[1], bytes.substr(0, bytes.size() - 1));
    for (int record = 0; record < 4; ++record)
        EXPECT_TRUE(request.readRecord());
    EXPECT_EQ(request.param("SCRIPT_NAME") + request.postData(), "/xbody");
    EXPECT_FALSE(request.readRecord()) << "the last record is not complete";
    request.writeHeader("");
    request.output() << "text";
    request.write(std::string(8193, 'x'));
    EXPECT_EQ(received(ends[1]).size(), (8 + 4 + 4) + (8 + 8193 + 7u)) << "a record each";
    EXPECT_EQ(request.writeRecord("z", 1), 0);
    EXPECT_EQ(received(ends[1]), std::string("\1\6\0\1\0\1\7\0z\0\0\0\0\0\0\0", 16))
        << "the type last written";
    request.output() << "more";
    EXPECT_EQ(request.output().str(), "more");
    EXPECT_EQ(request.close(), 0);
    EXPECT_LT(request.close(), 0);
    EXPECT_NO_THROW(request.sendError()) << "nothing to send";
    EXPECT_THROW(request.sendOutput(), std::runtime_error);
}

TEST_F(RequestTest, WithoutListenerABodyIsReadButNotAnswered) {
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
    clients_.push_back(ends[1]);
    Request request(nullptr, ends[0], 7);
    send(ends[1], records::request("/x", "body", false, 1, pair("CONTENT_LENGTH", "4")));
    for (int record = 0; record < 4; ++record)
        EXPECT_TRUE(request.readRecord());
    EXPECT_EQ(request.postData(), "body");
    EXPECT_THROW(request.end(), std::runtime_error);
}

TEST_F(RequestTest, AnExceptionEndsOnlyItsRequest) {
    answer_ = [](Request& request) {
        request.output() << "begun";
        throw std::runtime_error("broken");
    };
    EXPECT_THAT(received(send(request("/x", "", true))), HasSubstr("begun"));
    EXPECT_TRUE(request_->isClosed());
    EXPECT_THROW(request_->end(), std::runtime_error);
    EXPECT_THROW(request_->readRecord(), std::runtime_error);
}

} // namespace
