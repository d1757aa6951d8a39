// The writer for people, on TagLib (and our own for AIFF's text chunks):
// each field set where the format keeps it, in place of the frame or item
// that held it, with the text encoding of the tag's version; nothing else
// is touched.
#include "TagWriter.h"

#include <taglib/aifffile.h>
#include <taglib/commentsframe.h>
#include <taglib/id3v1genres.h>
#include <taglib/id3v1tag.h>
#include <taglib/id3v2frame.h>
#include <taglib/id3v2framefactory.h>
#include <taglib/id3v2header.h>
#include <taglib/id3v2tag.h>
#include <taglib/infotag.h>
#include <taglib/mp4file.h>
#include <taglib/mp4tag.h>
#include <taglib/mpegfile.h>
#include <taglib/textidentificationframe.h>
#include <taglib/unsynchronizedlyricsframe.h>
#include <taglib/wavfile.h>

#include <cerrno>
#include <exception>

#include "AiffTextChunks.h"
#include "TagStream.h"

namespace fileinfo {

namespace {

using TagLib::String;

String Text(const std::string& utf8) { return String(utf8, String::UTF8); }


// ---- ID3v2 ----

const char* Id3v2FrameOf(TagField field) {
    switch (field) {
        case TagField::Title: return "TIT2";
        case TagField::Artist: return "TPE1";
        case TagField::Album: return "TALB";
        case TagField::Genre: return "TCON";
        case TagField::Year: return "TDRC";  // written as TYER in an ID3v2.3 tag
        case TagField::Composer: return "TCOM";
        case TagField::Track: return "TRCK";
        case TagField::Comment: return "COMM";
        case TagField::Lyrics: return "USLT";
    }
    return "";
}

// A text frame takes the value in place: the first frame of its id keeps
// its position, further ones (which no reader shows) go.
void SetTextFrame(TagLib::ID3v2::Tag& tag, const char* id, const std::string& value, String::Type encoding) {
    TagLib::ID3v2::FrameList frames = tag.frameList(id);
    TagLib::ID3v2::TextIdentificationFrame* kept = nullptr;
    for (TagLib::ID3v2::Frame* frame : frames) {
        auto* text = dynamic_cast<TagLib::ID3v2::TextIdentificationFrame*>(frame);
        if (kept == nullptr && text != nullptr && !value.empty()) {
            kept = text;
        } else {
            tag.removeFrame(frame);
        }
    }
    if (value.empty()) return;
    if (kept == nullptr) {
        kept = new TagLib::ID3v2::TextIdentificationFrame(id, encoding);
        tag.addFrame(kept);
    }
    kept->setTextEncoding(encoding);
    kept->setText(Text(value));
}

// Comments and lyrics: the frame without a description is the one players
// show; frames with one (iTunNORM, ...) are other data and stay.
template <typename FrameType>
void SetDescribedFrame(TagLib::ID3v2::Tag& tag, const char* id, const std::string& value, String::Type encoding) {
    FrameType* kept = nullptr;
    for (TagLib::ID3v2::Frame* frame : tag.frameList(id)) {
        auto* described = dynamic_cast<FrameType*>(frame);
        if (described == nullptr || !described->description().isEmpty()) continue;
        if (kept == nullptr && !value.empty()) {
            kept = described;
        } else {
            tag.removeFrame(frame);
        }
    }
    if (value.empty()) return;
    if (kept == nullptr) {
        kept = new FrameType(encoding);
        kept->setLanguage("eng");
        tag.addFrame(kept);
    }
    kept->setTextEncoding(encoding);
    kept->setText(Text(value));
}

void SetId3v2(TagLib::ID3v2::Tag& tag, const TagEdits& edits, String::Type encoding) {
    for (const TagEdit& edit : edits.edits()) {
        const std::string value = GivenValue(edit);
        if (edit.field == TagField::Comment) {
            SetDescribedFrame<TagLib::ID3v2::CommentsFrame>(tag, "COMM", value, encoding);
        } else if (edit.field == TagField::Lyrics) {
            SetDescribedFrame<TagLib::ID3v2::UnsynchronizedLyricsFrame>(tag, "USLT", value, encoding);
        } else {
            SetTextFrame(tag, Id3v2FrameOf(edit.field), value, encoding);
        }
    }
}

// The version a tag is written in: the one it had (an ID3v2.2 tag, which
// cannot be written, becomes 2.3), 2.4 for a new tag, 2.3 when asked.
TagLib::ID3v2::Version VersionFor(const TagLib::ID3v2::Tag* existing, const TagWriteOptions& options) {
    if (options.id3v23) return TagLib::ID3v2::v3;
    if (existing == nullptr) return TagLib::ID3v2::v4;
    return existing->header()->majorVersion() == 4 ? TagLib::ID3v2::v4 : TagLib::ID3v2::v3;
}

// Texts are Unicode: UTF-16 (with a byte-order mark) in 2.3, UTF-8 in 2.4.
String::Type EncodingFor(TagLib::ID3v2::Version version) {
    return version == TagLib::ID3v2::v4 ? String::UTF8 : String::UTF16;
}

// ---- ID3v1: a value goes in only where it fits whole ----

bool FitsId3v1Text(const std::string& value, unsigned int room) {
    const String text = Text(value);
    return text.isLatin1() && text.size() <= room;
}

void SetId3v1(TagLib::ID3v1::Tag& tag, const TagEdits& edits) {
    for (const TagEdit& edit : edits.edits()) {
        const std::string& v = edit.text;
        switch (edit.field) {
            case TagField::Title:
                if (FitsId3v1Text(v, 30)) tag.setTitle(Text(v));
                break;
            case TagField::Artist:
                if (FitsId3v1Text(v, 30)) tag.setArtist(Text(v));
                break;
            case TagField::Album:
                if (FitsId3v1Text(v, 30)) tag.setAlbum(Text(v));
                break;
            case TagField::Comment:
                // 28 characters: the last two bytes hold the track.
                if (FitsId3v1Text(v, 28)) tag.setComment(Text(v));
                break;
            case TagField::Genre:
                if (v.empty()) {
                    tag.setGenre(String());
                } else if (TagLib::ID3v1::genreIndex(Text(v)) < 255) {
                    tag.setGenre(Text(v));
                }
                break;
            case TagField::Year: {
                unsigned int year = 0;
                bool digits = v.size() <= 4;
                for (char c : v) {
                    digits = digits && c >= '0' && c <= '9';
                    year = year * 10 + static_cast<unsigned int>(c - '0');
                }
                if (digits) tag.setYear(year);
                break;
            }
            case TagField::Track:
                if (edit.track <= 255) tag.setTrack(edit.track);
                break;
            case TagField::Composer:
            case TagField::Lyrics:
                break;  // ID3v1 has no place for them
        }
    }
}

// ---- The families ----

TagWriteResult Refused(const std::string& reason) {
    TagWriteResult result;
    result.reason = reason;
    return result;
}

TagWriteResult WriteId3File(TagStream& stream, const TagEdits& edits, const TagWriteOptions& options) {
    TagLib::MPEG::File file(&stream, TagLib::ID3v2::FrameFactory::instance(), false);
    if (!file.isValid()) return Refused("TagLib cannot read the file's tags");
    const bool hadId3v1 = file.hasID3v1Tag();
    const TagLib::ID3v2::Version version = VersionFor(file.hasID3v2Tag() ? file.ID3v2Tag() : nullptr, options);
    SetId3v2(*file.ID3v2Tag(true), edits, EncodingFor(version));
    int tags = TagLib::MPEG::File::ID3v2;
    if (hadId3v1) {
        SetId3v1(*file.ID3v1Tag(), edits);
        tags |= TagLib::MPEG::File::ID3v1;
    }
    TagWriteResult result;
    result.written = file.save(tags, TagLib::File::StripNone, version, TagLib::File::DoNotDuplicate);
    if (!result.written) result.reason = "TagLib could not save the tags";
    return result;
}

const char* Mp4ItemOf(TagField field) {
    switch (field) {
        case TagField::Title: return "\251nam";
        case TagField::Artist: return "\251ART";
        case TagField::Album: return "\251alb";
        case TagField::Genre: return "\251gen";
        case TagField::Year: return "\251day";
        case TagField::Comment: return "\251cmt";
        case TagField::Composer: return "\251wrt";
        case TagField::Lyrics: return "\251lyr";
        case TagField::Track: return "trkn";
    }
    return "";
}

TagWriteResult WriteMp4(TagStream& stream, const TagEdits& edits) {
    TagLib::MP4::File file(&stream, false);
    if (!file.isValid() || file.tag() == nullptr) return Refused("TagLib cannot read the file's items");
    TagLib::MP4::Tag& tag = *file.tag();
    for (const TagEdit& edit : edits.edits()) {
        const String key(Mp4ItemOf(edit.field), String::Latin1);
        // A genre is written as text; a numbered genre beside it would be
        // read first by some players.
        if (edit.field == TagField::Genre) tag.removeItem("gnre");
        if (edit.field == TagField::Track) {
            if (edit.track == 0) {
                tag.removeItem(key);
            } else {
                tag.setItem(key, TagLib::MP4::Item(static_cast<int>(edit.track), static_cast<int>(edit.trackTotal)));
            }
        } else if (edit.text.empty()) {
            tag.removeItem(key);
        } else {
            tag.setItem(key, TagLib::MP4::Item(TagLib::StringList(Text(edit.text))));
        }
    }
    TagWriteResult result;
    result.written = file.save();
    if (!result.written) result.reason = "TagLib could not save the items";
    return result;
}

// RIFF INFO texts are 8-bit: a value goes in only when it is Latin-1.
void SetInfo(TagLib::RIFF::Info::Tag& tag, const TagEdits& edits) {
    for (const TagEdit& edit : edits.edits()) {
        const std::string value = GivenValue(edit);
        if (!Text(value).isLatin1()) continue;
        switch (edit.field) {
            case TagField::Title: tag.setTitle(Text(value)); break;
            case TagField::Artist: tag.setArtist(Text(value)); break;
            case TagField::Album: tag.setAlbum(Text(value)); break;
            case TagField::Genre: tag.setGenre(Text(value)); break;
            case TagField::Comment: tag.setComment(Text(value)); break;
            case TagField::Year: tag.setFieldText("ICRD", Text(value)); break;
            case TagField::Track: tag.setFieldText("IPRT", Text(value)); break;
            case TagField::Composer: tag.setFieldText("IMUS", Text(value)); break;
            case TagField::Lyrics: break;
        }
    }
}

TagWriteResult WriteWav(TagStream& stream, const TagEdits& edits, const TagWriteOptions& options) {
    TagLib::RIFF::WAV::File file(&stream, false);
    if (!file.isValid()) return Refused("TagLib cannot read the file's chunks");
    if (!file.hasID3v2Tag() && !file.hasInfoTag())
        return Refused("fileinfo writes WAV tags only into an ID3 or LIST/INFO chunk, and the file has neither");
    int tags = 0;
    TagLib::ID3v2::Version version = TagLib::ID3v2::v4;
    if (file.hasID3v2Tag()) {
        version = VersionFor(file.ID3v2Tag(), options);
        SetId3v2(*file.ID3v2Tag(), edits, EncodingFor(version));
        tags |= TagLib::RIFF::WAV::File::ID3v2;
    }
    if (file.hasInfoTag()) {
        SetInfo(*file.InfoTag(), edits);
        tags |= TagLib::RIFF::WAV::File::Info;
    }
    TagWriteResult result;
    result.written = file.save(static_cast<TagLib::RIFF::WAV::File::TagTypes>(tags), TagLib::File::StripNone, version);
    if (!result.written) result.reason = "TagLib could not save the chunks";
    return result;
}

// A field no text chunk holds needs an ID3 chunk; removing one does not.
bool NeedsId3Chunk(const TagEdits& edits) {
    for (const TagEdit& edit : edits.edits())
        if (!AiffTextChunkHolds(edit.field) && !GivenValue(edit).empty()) return true;
    return false;
}

bool SetsAiffText(const TagEdits& edits) {
    for (const TagEdit& edit : edits.edits())
        if (AiffTextChunkHolds(edit.field)) return true;
    return false;
}

// AIFF keeps tags in an ID3 chunk, whose fields the reading takes first,
// and in the text chunks NAME, AUTH and ANNO. Every field goes into the ID3
// chunk when the file has one or a field needs one (TagLib adds it at the
// end of the FORM); the title, artist and comment also go into the text
// chunks there are, so that no reader sees the old value beside the new.
// Without an ID3 chunk the text chunks take them, added where missing.
TagWriteResult WriteAiff(int fd, TagStream& stream, const TagEdits& edits, const TagWriteOptions& options) {
    bool id3 = false;
    {
        TagLib::RIFF::AIFF::File file(&stream, false);
        if (!file.isValid()) return Refused("TagLib cannot read the file's chunks");
        id3 = file.hasID3v2Tag() || NeedsId3Chunk(edits);
        if (id3) {
            const TagLib::ID3v2::Version version = VersionFor(file.hasID3v2Tag() ? file.tag() : nullptr, options);
            SetId3v2(*file.tag(), edits, EncodingFor(version));
            if (!file.save(version)) return Refused("TagLib could not save the ID3 chunk");
        }
    }
    // WriteTags reports a write that failed underneath TagLib.
    if (stream.error() != 0) return Refused("writing the ID3 chunk failed");
    // An edit of other fields leaves the text chunks, and their layout, alone.
    if (!SetsAiffText(edits)) {
        TagWriteResult result;
        result.written = true;
        return result;
    }
    return WriteAiffTextChunks(fd, edits, !id3);
}

TagWriteResult WriteFormat(int fd, TagStream& stream, TagFormat format, const TagEdits& edits,
                           const TagWriteOptions& options) {
    switch (format) {
        case TagFormat::Id3: return WriteId3File(stream, edits, options);
        case TagFormat::Mp4: return WriteMp4(stream, edits);
        case TagFormat::Wav: return WriteWav(stream, edits, options);
        case TagFormat::Aiff: return WriteAiff(fd, stream, edits, options);
        case TagFormat::None: break;
    }
    return Refused("fileinfo cannot write tags into such files");
}

std::string Utf8(const String& text) { return text.to8Bit(true); }

std::string Id3v2Lyrics(TagLib::ID3v2::Tag* tag) {
    if (tag == nullptr) return std::string();
    for (TagLib::ID3v2::Frame* frame : tag->frameList("USLT")) {
        auto* lyrics = dynamic_cast<TagLib::ID3v2::UnsynchronizedLyricsFrame*>(frame);
        if (lyrics != nullptr && lyrics->description().isEmpty()) return Utf8(lyrics->text());
    }
    return std::string();
}

std::string LyricsOf(TagStream& stream, TagFormat format) {
    switch (format) {
        case TagFormat::Id3: {
            TagLib::MPEG::File file(&stream, TagLib::ID3v2::FrameFactory::instance(), false);
            return file.isValid() ? Id3v2Lyrics(file.ID3v2Tag()) : std::string();
        }
        case TagFormat::Mp4: {
            TagLib::MP4::File file(&stream, false);
            if (!file.isValid() || file.tag() == nullptr) return std::string();
            const TagLib::MP4::Item item = file.tag()->item(String("\251lyr", String::Latin1));
            return item.isValid() ? Utf8(item.toStringList().toString("\n")) : std::string();
        }
        case TagFormat::Wav: {
            TagLib::RIFF::WAV::File file(&stream, false);
            return file.isValid() && file.hasID3v2Tag() ? Id3v2Lyrics(file.ID3v2Tag()) : std::string();
        }
        case TagFormat::Aiff: {
            TagLib::RIFF::AIFF::File file(&stream, false);
            return file.isValid() && file.hasID3v2Tag() ? Id3v2Lyrics(file.tag()) : std::string();
        }
        case TagFormat::None: break;
    }
    return std::string();
}

}  // namespace

std::string ReadLyrics(int fd, const std::string& name, TagFormat format) {
    TagStream stream(fd, name);
    try {
        return LyricsOf(stream, format);
    } catch (const std::exception&) {
        return std::string();
    }
}

TagFormat TagFormatOf(const std::string& type, const std::string& aacFormat) {
    if (type == "MP3") return TagFormat::Id3;
    if (type == "AAC") return aacFormat == "ADTS" ? TagFormat::Id3 : TagFormat::None;
    if (type == "MP4" || type == "M4A" || type == "M4V" || type == "MOV" || type == "3GP") return TagFormat::Mp4;
    if (type == "WAV") return TagFormat::Wav;
    if (type == "AIFF" || type == "AIFC") return TagFormat::Aiff;
    return TagFormat::None;
}

TagWriteResult WriteTags(int fd, const std::string& name, TagFormat format, const TagEdits& edits,
                         const TagWriteOptions& options) {
    TagStream stream(fd, name);
    TagWriteResult result;
    try {
        result = WriteFormat(fd, stream, format, edits, options);
    } catch (const std::exception& e) {
        result = Refused(std::string("TagLib failed: ") + e.what());
    }
    // A write that failed underneath TagLib fails the edit, whatever TagLib said.
    if (stream.error() != 0) {
        result.written = false;
        result.error = stream.error();
        result.reason = "writing the tags into a copy failed";
    }
    return result;
}

}  // namespace fileinfo
