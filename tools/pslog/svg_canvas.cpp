// See svg_canvas.h.

#include "svg_canvas.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <vector>

namespace pslog {

namespace {

/// Used instead of the XML library's stream writer, which is tied to one C++ standard library.
class Writer : public pugi::xml_writer {
public:
    explicit Writer(std::ostream& out) : mOut(out) {}
    void write(const void* data, size_t size) override {
        mOut.write(static_cast<const char*>(data), static_cast<std::streamsize>(size));
    }

private:
    std::ostream& mOut;
};

void put(pugi::xml_node node, const char* attribute, double value) {
    node.append_attribute(attribute) = pixels(value).c_str();
}

bool beginsCharacter(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0) != 0x80;
}

}  // namespace

std::string pixels(double value) {
    char text[32];
    const int size = std::snprintf(text, sizeof text, "%.1f", value);
    std::string number(text, static_cast<size_t>(size));
    if (number.size() > 2 && number.compare(number.size() - 2, 2, ".0") == 0) number.resize(number.size() - 2);
    return number;
}

double widthOf(const std::string& words, double size) {
    constexpr double MOST_OF_SIZE = 0.66;
    return MOST_OF_SIZE * size * static_cast<double>(std::count_if(words.begin(), words.end(), beginsCharacter));
}

std::string fitted(const std::string& words, double size, double width) {
    if (widthOf(words, size) <= width) return words;
    std::vector<size_t> starts;  // of the characters
    for (size_t i = 0; i < words.size(); ++i) {
        if (beginsCharacter(words[i])) starts.push_back(i);
    }
    const auto room = static_cast<size_t>(width / widthOf("~", size));
    const size_t kept = room > 0 ? room - 1 : 0, front = kept / 3, back = kept - front;
    const size_t tail = back == 0 ? words.size() : starts[starts.size() - back];
    return words.substr(0, starts[front]) + "~" + words.substr(tail);
}

Canvas::Canvas() {
    mSvg = mDocument.append_child("svg");
    mSvg.append_attribute("xmlns") = "http://www.w3.org/2000/svg";
    mSvg.append_attribute("font-family") = "sans-serif";
    static constexpr const char* CLASSES[] = {"background", "quiet", "loud"};
    for (size_t i = 0; i < 3; ++i) {
        mLayers[i] = mSvg.append_child("g");
        mLayers[i].append_attribute("class") = CLASSES[i];
    }
}

pugi::xml_node Canvas::shape(Layer layer, const char* element, const char* color) {
    pugi::xml_node node = mLayers[static_cast<size_t>(layer)].append_child(element);
    node.append_attribute("fill") = color;
    return node;
}

pugi::xml_node Canvas::rect(Layer layer, double x, double y, double width, double height, const char* color) {
    pugi::xml_node node = shape(layer, "rect", color);
    put(node, "x", x);
    put(node, "y", y);
    put(node, "width", width);
    put(node, "height", height);
    return node;
}

pugi::xml_node Canvas::path(Layer layer, const std::string& way, const char* color) {
    pugi::xml_node node = shape(layer, "path", color);
    node.append_attribute("d") = way.c_str();
    return node;
}

pugi::xml_node Canvas::line(Layer layer, const std::string& way, const char* color, double width) {
    pugi::xml_node node = path(layer, way, "none");
    node.append_attribute("stroke") = color;
    put(node, "stroke-width", width);
    return node;
}

pugi::xml_node Canvas::text(Layer layer, double x, double y, const std::string& words, const Font& font) {
    pugi::xml_node node = shape(layer, "text", font.color);
    put(node, "x", x);
    put(node, "y", y);
    put(node, "font-size", font.size);
    if (font.bold) node.append_attribute("font-weight") = "bold";
    if (std::string(font.anchor) != "start") node.append_attribute("text-anchor") = font.anchor;
    node.text() = words.c_str();
    return node;
}

void Canvas::write(std::ostream& out, double width, double height) {
    put(mSvg, "width", std::ceil(width));
    put(mSvg, "height", std::ceil(height));
    pugi::xml_node paper = mSvg.prepend_child("rect");
    paper.append_attribute("fill") = "#ffffff";
    paper.append_attribute("width") = "100%";
    paper.append_attribute("height") = "100%";
    Writer writer(out);
    mDocument.save(writer, " ");
}

void outline(pugi::xml_node text, const char* color) {
    text.append_attribute("stroke") = color;
    text.append_attribute("stroke-width") = 3;
    text.append_attribute("paint-order") = "stroke";
}

void addTitle(pugi::xml_node shape, const std::string& words) {
    shape.append_child("title").text() = words.c_str();
}

}  // namespace pslog
