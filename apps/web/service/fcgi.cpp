#include "apps/web/service/fcgi.h"

#include "apps/common/diagnostics/diagnostics.h"
#include "apps/web/service/request.h"

#include <algorithm>
#include <exception>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <utility>

namespace {

constexpr int BACKLOG = 10;

} // namespace

Fcgi::Fcgi(int port, EventPoll& poll)
    : listener_(std::in_place, port, poll, this, BACKLOG), poll_(poll), parked_(poll) {}

Fcgi::Fcgi(EventPoll& poll) : listener_(std::in_place, poll, this), poll_(poll), parked_(poll) {}

Fcgi::~Fcgi() {
    listener_.reset(); // requests end while nobody listens
    for (const auto& [id, request] : registry_)
        if (!request->isFinished())
            request->end();
}

void Fcgi::stopAccepting() {
    isStopping_ = true;
    listener_->stop();
    for (const auto& [key, request] : accepted_) {
        if (request->isIdle())
            request->event(Readable); // a request may just have arrived
        if (request->isIdle())
            request->event(Hangup);
    }
}

bool Fcgi::isBusy() const {
    return std::any_of(
        accepted_.begin(), accepted_.end(),
        [](const auto& entry) {
            const Request& request = *entry.second;
            return !request.isClosed() && !request.context.has_value();
        });
}

void Fcgi::event(EventType type) {
    if (type > Readable)
        return;
    for (const Request* request : std::exchange(abandoned_, {}))
        accepted_.erase(request);
    Descriptor connection = listener_->accept();
    if (!connection.isOpen())
        return;
    try {
        take(std::move(connection));
    } catch (const std::exception& exception) {
        LOG_MESSAGE(Error, "Connection closed: %s", exception.what());
    }
}

void Fcgi::take(Descriptor connection) {
    if (isFull())
        parked_.add(std::move(connection));
    else
        serve(std::move(connection));
}

bool Fcgi::isFull() {
    if (registry_.size() < MAX_REQUESTS)
        return false;
    deleteMarked(); // safe: a marked request has left the loop and gets no more events
    // A kept connection whose next request is still arriving has an entry, but uses no place.
    const auto isOpen = [](const auto& entry) {
        return !entry.second->isFinished() && !entry.second->isReceiving();
    };
    return std::count_if(registry_.begin(), registry_.end(), isOpen) >=
           static_cast<std::ptrdiff_t>(MAX_REQUESTS);
}

void Fcgi::serve(Descriptor connection) {
    const int fd = connection.get();
    auto request = std::make_unique<Request>(this, fd, static_cast<int>(nextId_));
    connection.release();
    const auto entry = accepted_.emplace(request.get(), std::move(request)).first;
    try {
        poll_.add(fd, entry->second.get(), EPOLLIN);
    } catch (...) {
        accepted_.erase(entry);
        throw;
    }
    ++nextId_;
}

Request* Fcgi::request(unsigned int id) const {
    const auto found = registry_.find(id);
    return found == registry_.end() ? nullptr : found->second;
}

void Fcgi::addRequest(Request* request) {
    bodies_.finish(request);
    registry_[request->id()] = request;
    if (callback != nullptr)
        callback->handleRequest(request);
}

void Fcgi::removeRequest(Request* request) {
    poll_.remove(request->socket());
    LOG_MESSAGE(DebugMost, "REQUEST remove(%i)", static_cast<int>(request->id()));
    const bool isAbandoned = accepted_.contains(request) && this->request(request->id()) != request;
    if (isAbandoned)
        abandoned_.push_back(request);
    // Early disconnects get one log line per cleanup: any number of lines would fill the log's memory.
    if (!isAbandoned || !std::exchange(isAbandonedMarked_, true))
        marked_.push_back(request->id());
}

void Fcgi::cleanupAt(BodyBudget::Clock::time_point now) {
    deleteMarked();
    listener_->endPause();
    dropStalled(now);
    for (Request* request : bodies_.admit(now)) {
        watch(request, EPOLLIN);
        request->resume();
    }
}

void Fcgi::dropStalled(BodyBudget::Clock::time_point now) {
    for (Request* request : bodies_.stalled(now)) {
        char byte = 0;
        if (recv(request->socket(), &byte, 1, MSG_PEEK | MSG_DONTWAIT) < 0) // else this process is behind
            request->drop("Body has stalled");
    }
}

bool Fcgi::askForBody(Request* request, std::size_t size) {
    const bool isGranted = bodies_.ask(request, size, BodyBudget::Clock::now());
    if (!isGranted)
        watch(request, EPOLLIN | EPOLLRDHUP | EPOLLET); // unread bytes must not wake the loop again and again
    return isGranted;
}

bool Fcgi::growBody(Request* request, std::size_t size) {
    return bodies_.grow(request, size, BodyBudget::Clock::now());
}

void Fcgi::watch(Request* request, unsigned int events) {
    poll_.remove(request->socket());
    poll_.add(request->socket(), request, events);
}

void Fcgi::deleteMarked() {
    for (const unsigned int id : marked_) {
        const auto entry = registry_.extract(id);
        if (!entry) {
            LOG_MESSAGE(Warn, "Request %u no longer a valid request, though marked for deletion.", id);
            continue;
        }
        LOG_MESSAGE(DebugMost, "REQUEST delete(%i)", static_cast<int>(id));
        destroy(entry.mapped());
    }
    marked_.clear();
    isAbandonedMarked_ = false;
}

void Fcgi::destroy(Request* request) {
    if (accepted_.erase(request) == 0)
        delete request; // addRequest has taken the ownership
}
