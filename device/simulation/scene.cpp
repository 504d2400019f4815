#include "device/simulation/scene.h"

#include <utility>

void Scene::add(std::unique_ptr<Actor> actor, double intervalMs) {
    parts_.push_back({std::move(actor), intervalMs, 0});
}

void Scene::step(double timeMs) {
    for (Part& part : parts_) {
        if (timeMs >= part.nextMs) {
            part.nextMs = timeMs + part.intervalMs;
            part.actor->step(timeMs);
        }
    }
}

std::vector<std::uint32_t> Scene::interests() const {
    std::vector<std::uint32_t> ids;
    for (const Part& part : parts_) {
        const std::vector<std::uint32_t> wanted = part.actor->interests();
        ids.insert(ids.end(), wanted.begin(), wanted.end());
    }
    return ids;
}

void Scene::handleEvent(const Notify& event) {
    for (const Part& part : parts_)
        part.actor->changed(event.id);
}
