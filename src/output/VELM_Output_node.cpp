#include "output/VELM_Output_node.h"

#include "base/Log.h"
#include "base/Text.h"
#include "internal/ElementReading.h"
#include "platform/data/XMLDocument.h"
#include "template/VELM_Template.h"

using grammar::Form;
using platform::data::Findings;
using platform::data::XMLNode;

std::shared_ptr<VELM_Output_node> VELM_Output_node::initWithNode(const XMLNode& element, Findings* report) {
    auto node = std::make_shared<VELM_Output_node>();
    node->name_ = element.name();
    output::forEachAttribute(element, report, [&](const std::string& name, const std::string& text) {
        if (name == "frame") {
            node->addOutputFrameString(text);
            output::noteForm(report, element, name, Form::frame, text);
        } else if (name == "croprect") {
            node->cropRectString_ = text;
            output::noteForm(report, element, name, Form::rectangle, text);
        } else {
            return name == "type";
        }
        return true;
    });
    output::forEachChildElement(element, report, [&](const XMLNode& child) { return node->readChild(child, report); });
    return node;
}

bool VELM_Output_node::readChild(const XMLNode& child, Findings* report) {
    const std::string name = base::lowercase(child.name());
    const std::string text = child.stringValue();
    if (name == "frame") {
        addOutputFrameString(text);
        output::noteForm(report, child, Form::frame);
    } else if (name == "origin") {
        const base::Point origin = base::pointFromString(text);
        addOutputFrame({origin.x, origin.y, 0, 0});
        output::noteForm(report, child, Form::point);
    } else if (name == "gravity") {
        gravity_ = std::string(VELM_Template::normalizedGravity(text));
        output::noteForm(report, child, Form::gravity);
    } else if (name == "backgroundcolor") {
        backgroundColor_ = text;
        output::noteForm(report, child, Form::color);
    } else if (name == "tifforientation") {
        tiffOrientation_ = base::integerValue(text);
        output::noteForm(report, child, Form::integer);
    } else if (name == "shadowcolor") {
        shadowColor_ = text;
        output::noteForm(report, child, Form::color);
        output::forEachAttribute(child, report, [&](const std::string& attribute, const std::string& value) {
            if (attribute == "blur") {
                shadowBlur_ = value;
                output::noteForm(report, child, attribute, Form::number, value);
            } else if (attribute == "offset") {
                offsetPointString_ = value;
                output::noteForm(report, child, attribute, Form::point, value);
            } else {
                base::log("encountered unknown %@ attribute: %@", child.name(), attribute);
                return false;
            }
            return true;
        });
    } else {
        return false;
    }
    return true;
}

void VELM_Output_node::addOutputFrame(const base::Rect& frame) {
    frames_.push_back(base::stringFromRect(frame));
}

void VELM_Output_node::addOutputFrameString(std::string_view frame) {
    addOutputFrame(base::rectFromString(frame));
}

bool VELM_Output_node::matchesOutputSize(base::Size size) const {
    if (frames_.empty()) return true;
    if (frames_.size() > 1) return false;
    return base::rectFromString(frames_.front()) == base::Rect{0, 0, size.width, size.height};
}

void VELM_Output_node::canvasSize(base::Size canvasSize, base::Size nodeSize,
                                  const FrameCallback& enumerateOutputFrames) const {
    if (!enumerateOutputFrames) return;
    bool stop = false;
    for (std::size_t index = 0; index < frames_.size() && !stop; ++index) {
        base::Rect frame = base::rectFromString(frames_[index]);
        if (frame.isEmpty()) {
            frame.width = nodeSize.width;
            frame.height = nodeSize.height;
        }
        if (VELM_Template::isFlipped()) frame.y = canvasSize.height - frame.height - frame.y;
        enumerateOutputFrames(index, stop, frame);
    }
}

std::string VELM_Output_node::description() const {
    base::Array frames(frames_.begin(), frames_.end());
    return base::message("%@%@:%@", name_, cropRectString_.value_or(""), base::Value(std::move(frames)));
}

std::optional<base::Dictionary> VELM_Output_node::encoded() {
    return base::Dictionary{
        {"self.frames", base::Array(frames_.begin(), frames_.end())},
        {"self.name", name_},
        {"self.cropRectString", cropRectString_},
        {"self.offsetPointString", offsetPointString_},
        {"self.gravity", gravity_},
        {"self.shadowColor", shadowColor_},
        {"self.shadowBlur", shadowBlur_},
        {"self.backgroundColor", backgroundColor_},
        {"self.tiffOrientation", tiffOrientation_},
    };
}

base::Result<base::ObjectRef> VELM_Output_node::initWithCoder(const base::Dictionary& values) {
    auto node = std::make_shared<VELM_Output_node>();
    if (const base::Array* frames = base::valueForKey(values, "self.frames").as<base::Array>()) {
        for (const base::Value& frame : *frames)
            if (frame.isText()) node->addOutputFrameString(*frame.text());
    }
    node->name_ = base::valueForKey(values, "self.name").textOr("");
    node->cropRectString_ = base::textForKey(values, "self.cropRectString");
    node->offsetPointString_ = base::textForKey(values, "self.offsetPointString");
    node->gravity_ = base::textForKey(values, "self.gravity");
    node->shadowColor_ = base::textForKey(values, "self.shadowColor");
    node->shadowBlur_ = base::textForKey(values, "self.shadowBlur");
    node->backgroundColor_ = base::textForKey(values, "self.backgroundColor");
    const base::Value& orientation = base::valueForKey(values, "self.tiffOrientation");
    if (orientation.isNumber()) node->tiffOrientation_ = orientation.integerValue();
    return base::ObjectRef(node);
}
