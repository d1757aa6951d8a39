// A track's sample tables added up: the samples and their times (stts),
// their sizes (stsz, stz2), the busiest second, and where the first chunk
// lies (stco, co64). Tables are streamed in bounded pieces, an entry count
// is never trusted beyond the entries its box holds, and the walk over
// times has a bounded number of steps.
#include <algorithm>
#include <memory>

#include "Mp4Walk.h"

namespace fileinfo {
namespace media {

namespace {

constexpr size_t kPieceBytes = 64 * 1024;
// The most steps the walk over times takes (each step is at least one
// sample or one second of the track).
constexpr uint64_t kMaxTimeSteps = 1u << 22;

uint64_t SaturatingAdd(uint64_t a, uint64_t b) { return a > UINT64_MAX - b ? UINT64_MAX : a + b; }
uint64_t SaturatingMultiply(uint64_t a, uint64_t b) {
    return a != 0 && b > UINT64_MAX / a ? UINT64_MAX : a * b;
}

// The entries of a table, `bits` wide each (4, 8, 16, 32 or 64), read in
// pieces from [begin, end): at most `count`, and at most what the bytes hold.
class EntryStream {
public:
    EntryStream(const BoxBytes& bytes, uint64_t begin, uint64_t end, uint64_t count, unsigned bits)
        : bytes_(bytes), next_(begin), end_(end), bits_(bits) {
        const uint64_t room = end > begin ? (end - begin) * 8 / bits : 0;
        left_ = std::min(count, room);
    }

    uint64_t Left() const { return left_; }

    bool Next(uint64_t& value) {
        if (left_ == 0) return false;
        if (bits_ == 4) {
            if (!half_) {
                if (!Byte(nibbles_)) return false;
                value = nibbles_ >> 4;
            } else {
                value = nibbles_ & 0x0F;
            }
            half_ = !half_;
            --left_;
            return true;
        }
        const size_t width = bits_ / 8;
        if (at_ + width > piece_.size() && !Refill(width)) return false;
        const uint8_t* p = piece_.data() + at_;
        switch (width) {
            case 1: value = p[0]; break;
            case 2: value = BigEndian16(p); break;
            case 4: value = BigEndian32(p); break;
            default: value = BigEndian64(p); break;
        }
        at_ += width;
        --left_;
        return true;
    }

private:
    bool Byte(uint8_t& b) {
        if (at_ + 1 > piece_.size() && !Refill(1)) return false;
        b = piece_[at_++];
        return true;
    }
    // The next piece, a whole number of entries long.
    bool Refill(size_t width) {
        const uint64_t want = std::min<uint64_t>(kPieceBytes, (left_ * bits_ + 7) / 8);
        if (!bytes_.ReadRange(next_, end_, static_cast<size_t>(want - want % width), piece_) ||
            piece_.size() < width) {
            left_ = 0;
            return false;
        }
        next_ += piece_.size();
        at_ = 0;
        return true;
    }

    const BoxBytes& bytes_;
    uint64_t next_;
    uint64_t end_;
    unsigned bits_;
    uint64_t left_ = 0;
    std::vector<uint8_t> piece_;
    size_t at_ = 0;
    uint8_t nibbles_ = 0;
    bool half_ = false;
};

// The sample sizes of stsz (a constant size, or a table of 32-bit sizes)
// or stz2 (a table of 4-, 8- or 16-bit sizes).
class SampleSizes {
public:
    SampleSizes(const BoxBytes& bytes, const TableBox& box) {
        uint8_t h[12];
        if (box.type == 0 || box.end - box.body < 12 || !bytes.ReadAt(box.body, h, 12)) return;
        const uint64_t count = BigEndian32(h + 8);
        unsigned bits = 32;
        if (box.type == FourCc("stz2")) {
            bits = h[7];
            if (bits != 4 && bits != 8 && bits != 16) return;
        } else if (BigEndian32(h + 4) != 0) {
            constant_ = BigEndian32(h + 4);
            count_ = count;
            return;
        }
        table_.reset(new EntryStream(bytes, box.body + 12, box.end, count, bits));
        count_ = table_->Left();
    }

    // The count the table holds (a constant size has no table to check it).
    uint64_t Count() const { return count_; }
    uint64_t Constant() const { return constant_; }

    bool Next(uint64_t& size) {
        if (table_) return table_->Next(size);
        if (given_ >= count_) return false;
        ++given_;
        size = constant_;
        return true;
    }

    // Up to `n` samples of a constant size at once; how many there were.
    uint64_t TakeConstant(uint64_t n) {
        const uint64_t taken = std::min(n, count_ - given_);
        given_ += taken;
        return taken;
    }

    uint64_t Sum() {
        if (!table_) return SaturatingMultiply(constant_, count_);
        uint64_t sum = 0;
        uint64_t size = 0;
        while (table_->Next(size)) sum = SaturatingAdd(sum, size);
        return sum;
    }

private:
    std::unique_ptr<EntryStream> table_;
    uint64_t constant_ = 0;
    uint64_t count_ = 0;
    uint64_t given_ = 0;
};

// stts: version and flags, entry count, then (sample count, duration) pairs.
EntryStream TimeEntries(const BoxBytes& bytes, const TableBox& box) {
    uint8_t h[8];
    uint64_t count = 0;
    if (box.type != 0 && box.end - box.body >= 8 && bytes.ReadAt(box.body, h, 8)) count = BigEndian32(h + 4);
    return EntryStream(bytes, box.body + 8, box.end, SaturatingMultiply(count, 2), 32);
}

void AddTimes(const BoxBytes& bytes, const TableBox& box, SampleTotals& totals) {
    EntryStream entries = TimeEntries(bytes, box);
    uint64_t count = 0;
    uint64_t delta = 0;
    while (entries.Next(count) && entries.Next(delta)) {
        totals.samples = SaturatingAdd(totals.samples, count);
        totals.times = SaturatingAdd(totals.times, SaturatingMultiply(count, delta));
    }
}

// The most bytes whose samples start within one whole second of the track
// ([0 s, 1 s), [1 s, 2 s), ...), walking the times and the sizes together.
uint64_t PeakBytes(const BoxBytes& bytes, const Mp4Track& track) {
    const uint64_t scale = track.time_scale;
    if (scale == 0) return 0;
    EntryStream entries = TimeEntries(bytes, track.times);
    SampleSizes sizes(bytes, track.sizes);
    uint64_t time = 0;
    uint64_t second = 0;
    uint64_t inSecond = 0;
    uint64_t peak = 0;
    uint64_t steps = 0;
    uint64_t count = 0;
    uint64_t delta = 0;
    bool sizesLeft = true;
    while (sizesLeft && entries.Next(count) && entries.Next(delta)) {
        while (count > 0 && steps++ < kMaxTimeSteps) {
            if (time / scale != second) {
                peak = std::max(peak, inSecond);
                inSecond = 0;
                second = time / scale;
            }
            // The samples of this run that start before the next second.
            uint64_t n = count;
            if (delta != 0) n = std::min(n, ((second + 1) * scale - time + delta - 1) / delta);
            if (sizes.Constant() != 0) {
                const uint64_t taken = sizes.TakeConstant(n);
                inSecond = SaturatingAdd(inSecond, SaturatingMultiply(taken, sizes.Constant()));
                if (taken < n) sizesLeft = false;
            } else {
                uint64_t size = 0;
                for (uint64_t i = 0; i < n; ++i) {
                    if (!sizes.Next(size)) {
                        sizesLeft = false;
                        break;
                    }
                    inSecond = SaturatingAdd(inSecond, size);
                }
            }
            const uint64_t advance = SaturatingMultiply(n, delta);
            if (advance > UINT64_MAX / 2 - time) return std::max(peak, inSecond);
            time += advance;
            count -= n;
            if (!sizesLeft) break;
        }
        if (steps >= kMaxTimeSteps) break;
    }
    return std::max(peak, inSecond);
}

// stco (32-bit) or co64 (64-bit): version and flags, entry count, offsets.
void FirstChunk(const BoxBytes& bytes, const TableBox& box, SampleTotals& totals) {
    if (box.type == 0) return;
    EntryStream offsets(bytes, box.body + 8, box.end, UINT64_MAX, box.type == FourCc("co64") ? 64 : 32);
    uint8_t h[8];
    if (box.end - box.body < 8 || !bytes.ReadAt(box.body, h, 8) || BigEndian32(h + 4) == 0) return;
    totals.has_first_chunk = offsets.Next(totals.first_chunk);
}

}  // namespace

SampleTotals ReadSampleTables(const BoxBytes& bytes, const Mp4Track& track, bool peak) {
    SampleTotals totals;
    AddTimes(bytes, track.times, totals);
    totals.bytes = SampleSizes(bytes, track.sizes).Sum();
    if (peak) totals.peak_bytes = PeakBytes(bytes, track);
    FirstChunk(bytes, track.chunk_offsets, totals);
    return totals;
}

}  // namespace media
}  // namespace fileinfo
