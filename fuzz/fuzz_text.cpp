// The text conversions: a record's Latin-1 text to UTF-8 and back is the
// same text; UTF-8 that converts to Latin-1 converts back to itself; the
// JSON string writer gives valid UTF-8 that parses back to the text (invalid
// parts replaced), and the hex of any bytes reads back to them.
#include <nlohmann/json.hpp>

#include <cstring>
#include <string>

#include "FrontEnd.h"
#include "JsonText.h"
#include "Text.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string bytes(reinterpret_cast<const char*>(data), size);

    // A record text: up to its NUL, within its capacity.
    const size_t capacity = size < MEDIA_TEXT_SIZE ? size : MEDIA_TEXT_SIZE;
    const std::string field(bytes.c_str(), strnlen(bytes.c_str(), capacity));
    const std::string utf8 = fileinfo::Latin1ToUtf8(bytes.data(), capacity);
    if (!fileinfo::IsUtf8(utf8)) fuzz::Broken("Latin-1 to UTF-8 is not UTF-8", utf8);
    std::string back;
    if (!fileinfo::Utf8ToLatin1(utf8, back) || back != field) fuzz::Broken("Latin-1 to UTF-8 and back changed the text", field);

    std::string latin1;
    if (fileinfo::Utf8ToLatin1(bytes, latin1) && fileinfo::IsUtf8(bytes)) {
        if (fileinfo::Latin1ToUtf8(latin1.c_str(), latin1.size() + 1) != bytes.substr(0, strnlen(bytes.c_str(), size)))
            fuzz::Broken("UTF-8 to Latin-1 and back changed the text", bytes);
    }

    std::string json;
    fileinfo::AppendJsonString(json, bytes);
    if (!fileinfo::IsUtf8(json)) fuzz::Broken("a JSON string is not UTF-8", json);
    nlohmann::json parsed;
    try {
        parsed = nlohmann::json::parse(json);
    } catch (const nlohmann::json::exception& e) {
        fuzz::Broken("a JSON string does not parse", json + "\n" + e.what());
    }
    if (!parsed.is_string()) fuzz::Broken("a JSON string parses to something else", json);
    if (fileinfo::IsUtf8(bytes) && parsed.get<std::string>() != bytes) fuzz::Broken("a UTF-8 text does not parse back", json);

    const std::string hex = fileinfo::Hex(bytes);
    if (hex.size() != 2 * size) fuzz::Broken("hex has not two digits a byte");
    for (size_t i = 0; i < size; ++i) {
        if (static_cast<unsigned char>(std::stoi(hex.substr(2 * i, 2), nullptr, 16)) != data[i]) fuzz::Broken("hex does not read back");
    }
    return 0;
}
