// An SVG document under construction. Its shapes are in three layers, whatever the drawing order: the background, above
// it the quiet shapes (ordinary reads and values), and on top the loud ones (flickers).

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

    /// Each of these functions returns the new shape, so that a title can be added to it.
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

/// Adds the text that a browser shows when the pointer is over the shape.
void addTitle(pugi::xml_node shape, const std::string& words);

/// Draws a text with an outline, so that it can be read on top of other shapes.
void outline(pugi::xml_node text, const char* color);

/// A coordinate, rounded to what can be seen.
std::string pixels(double value);

/// An upper bound of a text's width in a browser's sans-serif font.
double widthOf(const std::string& words, double size);

/// The text, without its middle if it does not fit: names often differ only at their ends.
std::string fitted(const std::string& words, double size, double width);

}  // namespace pslog

#endif  // PSLOG_SVG_CANVAS_H
