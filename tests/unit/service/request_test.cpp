#include "apps/web/service/request.h"

#include "apps/web/service/fcgi.h"
#include "records.h"

#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>

namespace {

using namespace records;
using testing::HasSubstr;

/// A listener whose requests are answered by `answer`, and one connection to it that the test writes and
/// reads.
class RequestTest : public testing::Test, public Fcgi::RequestCallback {
protected:
    RequestTest() : fcgi_(0, poll_) {
        fcgi_.callback = this;
        connect();
    }
    ~RequestTest() override { close(peer_); }

    /// REQUIRES: the connection before, if any, has hung up.
    void connect() {
        fcgi_.cleanup();
        int pair[2];
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair), 0);
        peer_ = pair[0];
        request_ = std::make_unique<Request>(&fcgi_, pair[1], 7);
        poll_.add(pair[1], request_.get(), 1);
    }

    void handleRequest(Request* request) override {
        ++handled_;
        answer_(*request);
    }

    void send(std::string_view bytes) {
        ASSERT_EQ(::send(peer_, bytes.data(), bytes.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(bytes.size()));
        turn();
    }

    void turn() {
        while (poll_.wait(0, true) == EventPoll::DISPATCHED) {
        }
    }

    void hangUp() {
        shutdown(peer_, SHUT_RDWR);
        turn();
    }

    EventPoll poll_;
    std::unique_ptr<Request> request_; // outlives the listener, in whose registry it may be
    Fcgi fcgi_;
    int peer_ = -1;
    int handled_ = 0;
    std::function<void(Request&)> answer_ = [](Request& request) { request.end(); };
};

TEST_F(RequestTest, AnswerWithEmptyBodyIsOnlyEndRequest) {
    send(request("/x"));
    EXPECT_EQ(received(peer_), END_RECORD);
    EXPECT_TRUE(request_->isClosed());
}

TEST_F(RequestTest, AnswerCarriesTheDefaultHeaderAndEchoesVersionAndId) {
    answer_ = [](Request& request) {
        request.output() << "{}";
        request.error() << "oops";
        request.end();
    };
    std::string input = request("/x", "", false, 0x1234);
    for (std::size_t at : {0, 16}) // the headers of BEGIN_REQUEST and PARAMS
        input[at] = '\2';
    input[input.size() - 8] = '\0'; // version of the last record, which is the one echoed
    send(input);
    EXPECT_EQ(received(peer_), std::string("\0\6\x12\x34\0\x24\4\0", 8) +
                                   "Content-type: application/json\r\n\r\n{}" + std::string(4, '\0') +
                                   std::string("\0\7\x12\x34\0\4\4\0oops", 12) + std::string(4, '\0') +
                                   std::string("\0\3\x12\x34\0\10\0\0", 8) + std::string(8, '\0'));
}

TEST_F(RequestTest, ReadsTheSameWhereverTheStreamIsCut) {
    const std::string input = request("/api", "body", true);
    std::vector<std::string> bodies;
    answer_ = [&](Request& request) {
        bodies.push_back(request.param("SCRIPT_NAME") + " " + request.postData());
        request.end();
    };
    for (std::size_t cut = 0; cut <= input.size(); ++cut) {
        send(input.substr(0, cut));
        send(input.substr(cut));
        ASSERT_EQ(received(peer_), END_RECORD) << cut;
    }
    EXPECT_EQ(bodies, std::vector<std::string>(input.size() + 1, "/api body"));
}

TEST_F(RequestTest, WaitsForARecordWithoutSpinning) {
    send(request("/x").substr(0, 30));
    EXPECT_EQ(poll_.wait(0, true), EventPoll::TIMEOUT);
    EXPECT_EQ(handled_, 0);
}

TEST_F(RequestTest, KeepsTheConnectionForTheNextRequestWhenAsked) {
    std::vector<std::string> bodies;
    answer_ = [&](Request& request) {
        bodies.push_back(request.postData() + request.param("SCRIPT_NAME"));
        request.context = 0;
        request.end();
    };
    const std::string first(1000, 'f');
    send(request("/a", first, true) + request("/b", "", true));
    EXPECT_EQ(received(peer_), END_RECORD + END_RECORD);
    EXPECT_THAT(bodies, testing::ElementsAre(first + "/a", "/b"));
    EXPECT_LT(request_->postData().capacity(), first.size()) << "a kept connection keeps no body";
    EXPECT_TRUE(request_->isFinished());
    EXPECT_FALSE(request_->isClosed());
    EXPECT_FALSE(request_->context.has_value()) << "an answered request waits no longer";
}

TEST_F(RequestTest, LargeOutputIsCutAtTheLargestContentThatNeedsNoPadding) {
    answer_ = [](Request& request) {
        request.writeHeader("");
        request.output() << std::string(65529, 'x');
        request.end();
    };
    send(request("/x"));
    const std::string answer = received(peer_);
    ASSERT_EQ(answer.size(), 8 + 65528 + 8 + 1 + 7 + END_RECORD.size());
    EXPECT_EQ(answer.substr(0, 8), std::string("\1\6\0\1\xff\xf8\0\0", 8));
    EXPECT_EQ(answer.substr(8 + 65528, 16), std::string("\1\6\0\1\0\1\7\0x\0\0\0\0\0\0\0", 16));
}

TEST_F(RequestTest, OutputBeyondEightKilobytesGoesOutWhileTheAnswerGrows) {
    answer_ = [this](Request& request) {
        request.writeHeader("");
        request.output() << std::string(8192, 'x');
        request.output() << 'y';
        EXPECT_EQ(received(peer_).size(), 0u);
        request.output();
        EXPECT_EQ(received(peer_).size(), 8u + 8193 + 7);
    };
    send(request("/x"));
    EXPECT_EQ(handled_, 1);
}

TEST_F(RequestTest, ParametersStopAtThePairThatDoesNotFit) {
    const std::string longName(200, 'n');
    const std::string longPair = std::string("\x80\0\0\xc8\1", 5) + longName + "v";
    const auto params = [&](const std::string& content) {
        const auto* data = reinterpret_cast<const unsigned char*>(content.data());
        request_->begin(1, true);
        request_->addParams(data, static_cast<int>(content.size()));
    };
    params(pair("A", "1") + longPair + pair("A", "2"));
    EXPECT_EQ(request_->param(longName), "v");
    EXPECT_EQ(request_->param("A"), "2") << "the later value counts";
    for (const std::string& bad :
         {std::string("\0\0", 2), std::string("\x80\0\1", 3), std::string("\1\x80\0", 3),
          std::string("\2\1BC", 4), std::string("\xff\xff\xff\xff\xff\xff\xff\xff", 8),
          std::string("\1\xff\xff\xff\xff", 5)}) {
        params(pair("A", "1") + bad + pair("A", "2"));
        EXPECT_EQ(request_->param("A"), "1") << testing::PrintToString(bad);
    }
}

TEST_F(RequestTest, APeerThatGoesIsNoticedBeforeAndAfterTheInputIsComplete) {
    send(request("/x").substr(0, 40));
    hangUp();
    EXPECT_TRUE(request_->isClosed());

    close(peer_);
    connect();
    answer_ = [](Request& request) { request.context = 0; };
    send(request("/x"));
    EXPECT_FALSE(request_->isFinished());
    shutdown(peer_, SHUT_WR); // on TCP this is all that a close shows: end of file
    turn();
    EXPECT_TRUE(request_->isClosed());
    EXPECT_FALSE(request_->context.has_value());
    EXPECT_EQ(poll_.wait(0, true), EventPoll::TIMEOUT);
}

TEST_F(RequestTest, AnExceptionEndsTheRequestAndNothingElse) {
    answer_ = [](Request& request) {
        request.output() << "begun";
        throw std::runtime_error("broken");
    };
    send(request("/x", "", true));
    EXPECT_THAT(received(peer_), HasSubstr("begun"));
    EXPECT_TRUE(request_->isClosed());
    EXPECT_THROW(request_->end(), std::runtime_error);
    EXPECT_THROW(request_->readRecord(), std::runtime_error);
}

TEST_F(RequestTest, APeerThatVanishesWhileItIsAnsweredCostsOnlyItsAnswer) {
    answer_ = [this](Request& request) {
        shutdown(peer_, SHUT_RDWR);
        request.output() << std::string(1 << 20, 'x');
        request.end();
    };
    send(request("/x", "", true));
    EXPECT_TRUE(request_->isClosed()) << "the rest of a record is lost: the stream is of no more use";
}

TEST_F(RequestTest, SurvivesFlippedBits) {
    const std::string input = request("/api/v1/set.cgi", R"({"M":{"V":1}})", true);
    std::mt19937 random(2);
    for (std::size_t bit = 0; bit < input.size() * 8; ++bit) {
        std::string bytes = input;
        bytes[bit / 8] = static_cast<char>(bytes[bit / 8] ^ (1 << bit % 8));
        bytes[random() % bytes.size()] = static_cast<char>(random());
        send(bytes);
        hangUp();
        ASSERT_TRUE(request_->isClosed());
        close(peer_);
        connect();
    }
    send(request("/x"));
    EXPECT_EQ(received(peer_), END_RECORD);
}

TEST(RequestWithoutListener, CannotSend) {
    Request request(nullptr, -1, 0);
    EXPECT_THROW(request.sendOutput(), std::runtime_error);
    EXPECT_THROW(request.end(), std::runtime_error);
}

} // namespace
