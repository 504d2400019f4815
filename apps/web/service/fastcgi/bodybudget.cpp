#include "apps/web/service/fastcgi/bodybudget.h"

bool BodyBudget::ask(Request* request, std::size_t size, Clock::time_point now) {
    Pool& pool = poolOf(size);
    if (!pool.queue.empty() || !pool.fits(size)) {
        pool.queue.push_back({request, size});
        return false;
    }
    begin({request, size}, now);
    return true;
}

void BodyBudget::begin(const Waiting& body, Clock::time_point now) {
    poolOf(body.size).used += body.size;
    turns_[body.request] = {body.size, 0, now};
}

bool BodyBudget::grow(Request* request, std::size_t size, Clock::time_point now) {
    Turn& turn = turns_.try_emplace(request, Turn{0, 0, now}).first->second; // also for a body without length
    if (size > turn.size) {
        Pool& before = poolOf(turn.size);
        Pool& after = poolOf(size);
        before.used -= turn.size;
        const bool fits = after.fits(size);
        if (fits)
            turn.size = size;
        poolOf(turn.size).used += turn.size;
        if (!fits)
            return false;
    }
    if (size >= turn.arrived + MIN_PROGRESS)
        turn = {turn.size, size, now};
    return true;
}

void BodyBudget::finish(Request* request) {
    const auto turn = turns_.find(request);
    if (turn != turns_.end())
        turn->second.at = Clock::time_point::max();
}

void BodyBudget::release(Request* request) {
    for (Pool* pool : {&small_, &large_})
        std::erase_if(pool->queue, [request](const Waiting& waiting) { return waiting.request == request; });
    const auto turn = turns_.find(request);
    if (turn == turns_.end())
        return;
    poolOf(turn->second.size).used -= turn->second.size;
    turns_.erase(turn);
}

std::vector<Request*> BodyBudget::admit(Clock::time_point now) {
    std::vector<Request*> admitted;
    for (Pool* pool : {&small_, &large_}) {
        for (auto& queue = pool->queue; !queue.empty() && pool->fits(queue.front().size); queue.pop_front()) {
            begin(queue.front(), now);
            admitted.push_back(queue.front().request);
        }
    }
    return admitted;
}

std::vector<Request*> BodyBudget::stalled(Clock::time_point now) const {
    std::vector<Request*> result;
    for (const auto& [request, turn] : turns_)
        if (now - turn.at > STALL_TIMEOUT)
            result.push_back(request);
    return result;
}
