// The edit difference over records, frame lists and assignments from the
// input: a record compared with itself, or a frame list with itself, shows
// no change; every change shown is a real one, named once; values that are
// the account in words is UTF-8 and names every changed field.
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "Difference.h"
#include "FrontEnd.h"
#include "JsonText.h"
#include "RecordFields.h"
#include "SafeEdit.h"
#include "Text.h"

namespace {

fileinfo::FrameList AnyFrames(FuzzedDataProvider& in) {
    fileinfo::FrameList frames;
    const size_t count = in.ConsumeIntegralInRange<size_t>(0, 6);
    for (size_t k = 0; k < count; ++k) {
        static const char* const kIds[] = {"TIT2", "TPE1", "TALB", "TCON", "TYER", "COMM", "TCOM", "USLT", "TRCK", "APIC"};
        const std::string id = in.ConsumeBool() ? kIds[in.ConsumeIntegralInRange<size_t>(0, 9)] : fuzz::AnyText(in, 4);
        // The frame list holds its texts as UTF-8, made from the tag's Latin-1.
        const std::string text = fuzz::AnyText(in, 24);
        frames.emplace_back(fileinfo::Latin1ToUtf8(id.c_str(), id.size()), fileinfo::Latin1ToUtf8(text.c_str(), text.size()));
    }
    return frames;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider in(data, size);
    const fileinfo::ScanItem a = fuzz::AnyItem(in);
    const fileinfo::ScanItem b = fuzz::AnyItem(in);
    const fileinfo::FrameList before = AnyFrames(in);
    const fileinfo::FrameList after = AnyFrames(in);
    std::vector<std::string> assignments;
    const size_t count = in.ConsumeIntegralInRange<size_t>(0, 3);
    for (size_t k = 0; k < count; ++k) assignments.push_back(fuzz::AnyText(in, 40));

    fileinfo::Difference same;
    fileinfo::CompareRecords(a.record, a.record, same);
    fileinfo::CompareFrames(before, before, same);
    if (!same.empty()) fuzz::Broken("a record or frame list differs from itself", fileinfo::DescribeDifference(same));

    fileinfo::Difference d;
    fileinfo::CompareRecords(a.record, b.record, d);
    std::set<std::string> named;
    for (const fileinfo::FieldChange& f : d.fields) {
        if (f.before == f.after) fuzz::Broken("a field shown as changed is the same", f.field);
        if (!named.insert(f.field).second) fuzz::Broken("a field is shown twice", f.field);
    }
    if (d.fields.size() > fileinfo::kNumberFieldCount + fileinfo::kTextFieldCount) fuzz::Broken("more changes than fields");
    fileinfo::CompareFrames(before, after, d);
    for (const fileinfo::FrameChange& f : d.frames) {
        if (f.kind == fileinfo::FrameChange::Changed && f.before == f.after) fuzz::Broken("a frame shown as changed is the same", f.id);
    }

    fileinfo::TagEdits edits;
    std::string mistake;
    if (fileinfo::ParseTagEdits(assignments, edits, mistake)) {
        MediaFileInfo_st edited = a.record;
        edits.ApplyTo(edited);
        fileinfo::Difference readBack;
        fileinfo::CompareReadBack(edits, edited, readBack);
        for (const fileinfo::ReadBackMismatch& m : readBack.mismatches) {
            if (!fileinfo::IsUtf8(m.given) || !fileinfo::IsUtf8(m.readBack)) fuzz::Broken("a mismatch is not UTF-8", m.given);
        }
        fileinfo::CompareReadBack(edits, b.record, d);
        d.GoesBeyond(edits);
    } else if (mistake.empty()) {
        fuzz::Broken("an assignment refused without a reason");
    }

    const std::string text = fileinfo::DescribeDifference(d);
    if (!fileinfo::IsUtf8(text)) fuzz::Broken("the difference in words is not UTF-8", text);
    for (const fileinfo::FieldChange& f : d.fields) {
        if (text.find(f.field) == std::string::npos) fuzz::Broken("the words leave a changed field out", f.field);
    }
    return 0;
}
