#include "StrictJson.h"

#include <set>
#include <vector>

namespace host {
namespace {

using nlohmann::json;

// Where the parser is: one frame per open object or array.
struct Frame {
    bool isObject = false;
    std::string field; // the name of the object or array itself
    std::set<std::string> keys;
    std::string pendingKey; // the key whose value comes next (objects)
    size_t nextIndex = 0;   // the index of the next element (arrays)
};

class FieldTracker {
public:
    // The name of the value about to be read in the innermost frame.
    std::string CurrentField() const {
        if (m_Frames.empty()) {
            return std::string();
        }
        const Frame& frame = m_Frames.back();
        if (frame.isObject) {
            return frame.field.empty() ? frame.pendingKey : frame.field + "." + frame.pendingKey;
        }
        return frame.field + "[" + std::to_string(frame.nextIndex) + "]";
    }

    bool OnEvent(json::parse_event_t event, const json& parsed) {
        switch (event) {
        case json::parse_event_t::object_start:
        case json::parse_event_t::array_start: {
            Frame frame;
            frame.isObject = event == json::parse_event_t::object_start;
            frame.field = CurrentField();
            m_Frames.push_back(std::move(frame));
            break;
        }
        case json::parse_event_t::key: {
            Frame& frame = m_Frames.back();
            const std::string key = parsed.get<std::string>();
            frame.pendingKey = key;
            const std::string field = CurrentField();
            if (key.find('\0') != std::string::npos) {
                throw StrictJsonError("has a NUL character in the name of the field \"" + Printable(field) +
                                      "\"");
            }
            if (!frame.keys.insert(key).second) {
                throw StrictJsonError("gives the field \"" + field + "\" more than once");
            }
            break;
        }
        case json::parse_event_t::object_end:
        case json::parse_event_t::array_end:
            m_Frames.pop_back();
            Advance();
            break;
        case json::parse_event_t::value:
            if (parsed.is_string() && parsed.get_ref<const std::string&>().find('\0') != std::string::npos) {
                throw StrictJsonError("has a NUL character (\\u0000) in the field \"" + CurrentField() +
                                      "\"");
            }
            Advance();
            break;
        }
        return true;
    }

private:
    // A value of the innermost frame is complete.
    void Advance() {
        if (!m_Frames.empty() && !m_Frames.back().isObject) {
            ++m_Frames.back().nextIndex;
        }
    }

    static std::string Printable(const std::string& text) {
        std::string out;
        for (char c : text) {
            out += c == '\0' ? std::string("\\u0000") : std::string(1, c);
        }
        return out;
    }

    std::vector<Frame> m_Frames;
};

} // namespace

json ParseStrictJson(const std::string& text) {
    FieldTracker tracker;
    return json::parse(text, [&tracker](int, json::parse_event_t event, json& parsed) {
        return tracker.OnEvent(event, parsed);
    });
}

} // namespace host
