// A track's sample tables added up: the samples and their times (stts),
// their sizes (stsz, stz2), the busiest second, and where the first chunk
// lies (stco, co64). Tables are read where they lie in memory, or streamed
// from the file in bounded pieces; an entry count is never trusted beyond
// the entries its box holds, and the walk over times has a bounded number
// of steps.
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

// The entries of a table, `bits` wide each (4, 8, 16, 32 or 64), from
// [begin, end): at most `count`, and at most what the bytes hold.
class EntryStream {
public:
    EntryStream(const BoxBytes& bytes, uint64_t begin, uint64_t end, uint64_t count, unsigned bits)
        : bytes_(bytes), next_(begin), end_(end), bits_(bits) {
        const uint64_t room = end > begin ? (end - begin) * 8 / bits : 0;
        left_ = std::min(count, room);
    }

    uint64_t Left() const { return left_; }
    unsigned Bits() const { return bits_; }

    // Up to `most` whole entries of a byte-wide table, contiguous at `p`;
    // 0 at the end.
    uint64_t Take(uint64_t most, const uint8_t*& p) {
        const size_t width = bits_ / 8;
        if (left_ == 0 || most == 0 || width == 0) return 0;
        if (size_ - at_ < width && !Refill(width)) return 0;
        const uint64_t n = std::min<uint64_t>({most, left_, (size_ - at_) / width});
        p = data_ + at_;
        at_ += static_cast<size_t>(n) * width;
        left_ -= n;
        return n;
    }

    bool Next(uint64_t& value) {
        if (bits_ == 4) return NextNibble(value);
        const uint8_t* p = nullptr;
        if (Take(1, p) == 0) return false;
        switch (bits_) {
            case 8: value = p[0]; break;
            case 16: value = BigEndian16(p); break;
            case 32: value = BigEndian32(p); break;
            default: value = BigEndian64(p); break;
        }
        return true;
    }

private:
    // 4-bit entries: two to a byte, the high half first.
    bool NextNibble(uint64_t& value) {
        if (left_ == 0) return false;
        if (!half_) {
            if (size_ - at_ < 1 && !Refill(1)) return false;
            nibbles_ = data_[at_++];
            value = nibbles_ >> 4;
        } else {
            value = nibbles_ & 0x0F;
        }
        half_ = !half_;
        --left_;
        return true;
    }

    // The next piece, a whole number of entries long: in place when the
    // bytes are in memory, else read into `piece_`.
    bool Refill(size_t width) {
        const uint64_t want = std::min<uint64_t>(end_ - next_, (left_ * bits_ + 7) / 8);
        if (const uint8_t* in = bytes_.InPlace(next_, want)) {
            data_ = in;
            size_ = static_cast<size_t>(want);
        } else {
            const uint64_t piece = std::min<uint64_t>(want, kPieceBytes);
            size_ = static_cast<size_t>(piece - piece % width);
            if (!piece_) piece_.reset(new uint8_t[kPieceBytes]);  // filled by the read, not zeroed first
            if (!bytes_.ReadAt(next_, piece_.get(), size_)) size_ = 0;
            data_ = piece_.get();
        }
        at_ = 0;
        next_ += size_;
        if (size_ < width) {
            left_ = 0;
            return false;
        }
        return true;
    }

    const BoxBytes& bytes_;
    uint64_t next_;
    uint64_t end_;
    unsigned bits_;
    uint64_t left_ = 0;
    std::unique_ptr<uint8_t[]> piece_;
    const uint8_t* data_ = nullptr;
    size_t size_ = 0;
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
            left_ = count;
            return;
        }
        table_.reset(new EntryStream(bytes, box.body + 12, box.end, count, bits));
    }

    // Adds up to `n` sizes (the next ones) to `sum`; how many there were.
    uint64_t Add(uint64_t n, uint64_t& sum) {
        if (!table_) {
            const uint64_t taken = std::min(n, left_);
            left_ -= taken;
            sum = SaturatingAdd(sum, SaturatingMultiply(taken, constant_));
            return taken;
        }
        if (table_->Bits() == 4) {
            uint64_t taken = 0;
            uint64_t size = 0;
            while (taken < n && table_->Next(size)) {
                sum += size;
                ++taken;
            }
            return taken;
        }
        uint64_t taken = 0;
        const uint8_t* p = nullptr;
        while (taken < n) {
            const uint64_t got = table_->Take(n - taken, p);
            if (got == 0) break;
            sum = SaturatingAdd(sum, Total(p, got, table_->Bits()));
            taken += got;
        }
        return taken;
    }

private:
    // The sum of `n` big-endian sizes (at most 2^32 of 32 bits: no overflow).
    static uint64_t Total(const uint8_t* p, uint64_t n, unsigned bits) {
        uint64_t sum = 0;
        if (bits == 32) {
            // Four running sums, so that the additions do not wait on one
            // another: the tables of a long film hold a million sizes.
            uint64_t a = 0, b = 0, c = 0, d = 0;
            uint64_t i = 0;
            for (; i + 4 <= n; i += 4) {
                a += BigEndian32(p + 4 * i);
                b += BigEndian32(p + 4 * i + 4);
                c += BigEndian32(p + 4 * i + 8);
                d += BigEndian32(p + 4 * i + 12);
            }
            for (; i < n; ++i) a += BigEndian32(p + 4 * i);
            sum = a + b + c + d;
        } else if (bits == 16) {
            for (uint64_t i = 0; i < n; ++i) sum += BigEndian16(p + 2 * i);
        } else {
            for (uint64_t i = 0; i < n; ++i) sum += p[i];
        }
        return sum;
    }

    std::unique_ptr<EntryStream> table_;
    uint64_t constant_ = 0;
    uint64_t left_ = 0;  // constant sizes not yet added
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
// ([0 s, 1 s), [1 s, 2 s), ...), walking the times and the sizes together;
// the bytes of every sample are added to `bytes` on the way.
uint64_t PeakBytes(const BoxBytes& bytes, const Mp4Track& track, SampleSizes& sizes, uint64_t& total) {
    const uint64_t scale = track.time_scale;
    if (scale == 0) return 0;
    EntryStream entries = TimeEntries(bytes, track.times);
    uint64_t time = 0;
    uint64_t second = 0;
    uint64_t inSecond = 0;
    uint64_t peak = 0;
    uint64_t steps = 0;
    uint64_t count = 0;
    uint64_t delta = 0;
    while (steps < kMaxTimeSteps && entries.Next(count) && entries.Next(delta)) {
        for (; count > 0 && steps < kMaxTimeSteps; ++steps) {
            if (time / scale != second) {
                peak = std::max(peak, inSecond);
                inSecond = 0;
                second = time / scale;
            }
            // The samples of this run that start before the next second.
            uint64_t n = count;
            if (delta != 0) n = std::min(n, ((second + 1) * scale - time + delta - 1) / delta);
            uint64_t added = 0;
            const uint64_t taken = sizes.Add(n, added);
            inSecond = SaturatingAdd(inSecond, added);
            total = SaturatingAdd(total, added);
            if (taken < n) return std::max(peak, inSecond);  // no sizes left
            const uint64_t advance = SaturatingMultiply(n, delta);
            if (advance > UINT64_MAX / 2 - time) return std::max(peak, inSecond);
            time += advance;
            count -= n;
        }
    }
    return std::max(peak, inSecond);
}

// stco (32-bit) or co64 (64-bit): version and flags, entry count, offsets.
// Only the first offset is read.
void FirstChunk(const BoxBytes& bytes, const TableBox& box, SampleTotals& totals) {
    const bool wide = box.type == FourCc("co64");
    const size_t length = wide ? 16 : 12;
    uint8_t h[16];
    if (box.type == 0 || box.end - box.body < length || !bytes.ReadAt(box.body, h, length)) return;
    if (BigEndian32(h + 4) == 0) return;
    totals.first_chunk = wide ? BigEndian64(h + 8) : BigEndian32(h + 8);
    totals.has_first_chunk = true;
}

}  // namespace

SampleTotals ReadSampleTables(const BoxBytes& bytes, const Mp4Track& track, bool peak) {
    SampleTotals totals;
    AddTimes(bytes, track.times, totals);
    SampleSizes sizes(bytes, track.sizes);
    if (peak) totals.peak_bytes = PeakBytes(bytes, track, sizes, totals.bytes);
    // The sizes the times did not reach.
    sizes.Add(UINT64_MAX, totals.bytes);
    FirstChunk(bytes, track.chunk_offsets, totals);
    return totals;
}

}  // namespace media
}  // namespace fileinfo
