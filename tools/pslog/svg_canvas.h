// An SVG document under construction. What is loud lies on top of what is quiet, and both on the background, in
// whatever order they are drawn.

#ifndef PSLOG_SVG_CANVAS_H
#define PSLOG_SVG_CANVAS_H

#include <ostream>
#include <pugixml.hpp>
#include <string>

namespace pslog {

enum class Layer { BACKGROUND, QUIET, LOUD };

struct Font {
    const char* color = "#333333";
    double size = 12;
    bool bold = false;
    const char* anchor = "start";
};

class Canvas {
public:
    Canvas();

    /// Each returns the shape, for a title.
    pugi::xml_node rect(Layer layer, double x, double y, double width, double height, const char* color);
    pugi::xml_node path(Layer layer, const std::string& way, const char* color);
    pugi::xml_node line(Layer layer, const std::string& way, const char* color, double width);
    pugi::xml_node text(Layer layer, double x, double y, const std::string& words, const Font& font = {});

    void write(std::ostream& out, double width, double height);

private:
    pugi::xml_node shape(Layer layer, const char* element, const char* color);

    pugi::xml_document mDocument;
    pugi::xml_node mSvg;
    pugi::xml_node mLayers[3];
};

/// What the browser shows where the reader points at a shape.
void addTitle(pugi::xml_node shape, const std::string& words);

/// Keeps what lies beneath a text away from its letters.
void outline(pugi::xml_node text, const char* color);

/// A number with no more digits than can be seen.
std::string pixels(double value);

/// No narrower than a browser's sans-serif draws it.
double widthOf(const std::string& words, double size);

/// The first characters, as many as fit.
std::string fitted(const std::string& words, double size, double width);

}  // namespace pslog

#endif  // PSLOG_SVG_CANVAS_H
