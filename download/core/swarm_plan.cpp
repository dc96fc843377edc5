#include "download/core/swarm_plan.h"

#include <algorithm>

namespace corvid::download {

void SwarmPlan::setLength(std::uint64_t length) {
    length_ = length;
    RangeSet kept;
    for (ByteSpan span : done_.spans()) {
        kept.add({span.begin, std::min(span.end, length)});
    }
    done_ = kept;
    for (auto it = claims_.begin(); it != claims_.end();) {
        it->second.end = std::min(it->second.end, length);
        it = it->second.next >= it->second.end ? claims_.erase(it) : std::next(it);
    }
}

void SwarmPlan::markDone(ByteSpan span) {
    if (length_) {
        span.end = std::min(span.end, *length_);
    }
    done_.add(span);
}

std::optional<ByteSpan> SwarmPlan::claimFree(std::uint32_t owner, std::uint64_t maxSize) {
    if (!length_ || maxSize == 0) {
        return std::nullopt;
    }
    release(owner);
    std::uint64_t from = 0;
    while (auto gap = done_.firstGap(from, *length_)) {
        // The gap may begin inside someone's claim, or be cut short by the next claim.
        std::uint64_t end = gap->end;
        bool inside = false;
        for (const auto& [id, claim] : claims_) {
            if (claim.next <= gap->begin && gap->begin < claim.end) {
                from = claim.end;
                inside = true;
                break;
            }
            if (claim.next > gap->begin) {
                end = std::min(end, claim.next);
            }
        }
        if (inside) {
            continue;
        }
        const ByteSpan span{gap->begin, std::min(end, gap->begin + maxSize)};
        claims_[owner] = {span.begin, span.end};
        return span;
    }
    return std::nullopt;
}

std::optional<ByteSpan> SwarmPlan::steal(std::uint32_t owner, std::uint64_t minSize,
                                         std::uint64_t maxSize, double ownSpeed,
                                         const std::function<double(std::uint32_t)>& speedOf) {
    release(owner);
    // Seconds the owner still needs; a quiet owner never ends.
    const auto finish = [&](const Claim& claim, double speed) {
        const auto left = static_cast<double>(claim.end - claim.next);
        return speed < 0 ? 1e300 : left / std::max(speed, 1.0);
    };
    auto victim = claims_.end();
    double victimSpeed = 0;
    double victimFinish = -1;
    for (auto it = claims_.begin(); it != claims_.end(); ++it) {
        const double speed = speedOf(it->first);
        const double ends = finish(it->second, speed);
        if (ends > victimFinish) {
            victim = it;
            victimSpeed = speed;
            victimFinish = ends;
        }
    }
    if (victim == claims_.end()) {
        return std::nullopt;
    }
    Claim& claim = victim->second;
    const std::uint64_t left = claim.end - claim.next;
    if (victimSpeed < 0) {
        const ByteSpan span{claim.next, std::min(claim.end, claim.next + maxSize)};
        claims_.erase(victim);
        claims_[owner] = {span.begin, span.end};
        return span;
    }
    const double share =
        victimSpeed > 0 && ownSpeed > 0 ? ownSpeed / (ownSpeed + victimSpeed) : 0.5;
    const auto taken = static_cast<std::uint64_t>(static_cast<double>(left) * share);
    if (taken < minSize || left - taken < minSize) {
        return std::nullopt;
    }
    const std::uint64_t middle = claim.end - taken;
    const ByteSpan span{middle, std::min(claim.end, middle + maxSize)};
    claim.end = middle;
    claims_[owner] = {span.begin, span.end};
    return span;
}

void SwarmPlan::claimExact(std::uint32_t owner, ByteSpan span) {
    claims_[owner] = {span.begin, span.end};
}

std::optional<SwarmPlan::Claim> SwarmPlan::claimOf(std::uint32_t owner) const {
    const auto it = claims_.find(owner);
    if (it == claims_.end()) {
        return std::nullopt;
    }
    return it->second;
}

void SwarmPlan::recordWritten(std::uint32_t owner, ByteSpan span) {
    markDone(span);
    const auto it = claims_.find(owner);
    if (it == claims_.end()) {
        return;
    }
    it->second.next = std::max(it->second.next, span.end);
    if (it->second.next >= it->second.end) {
        claims_.erase(it);
    }
}

void SwarmPlan::release(std::uint32_t owner) {
    claims_.erase(owner);
}

std::uint64_t SwarmPlan::freeBytes() const {
    if (!length_) {
        return 0;
    }
    std::uint64_t claimed = 0;
    for (const auto& [id, claim] : claims_) {
        claimed += claim.end - claim.next;
    }
    const std::uint64_t busy = done_.total() + claimed;
    return busy >= *length_ ? 0 : *length_ - busy;
}

} // namespace corvid::download
