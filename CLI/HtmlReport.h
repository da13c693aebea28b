#ifndef ORBTEX_CLI_HTML_REPORT_H
#define ORBTEX_CLI_HTML_REPORT_H

// A report page: a title, then paragraphs, tables and rows of pictures in the
// order they are added, written as one self-contained HTML file that refers to
// image files beside it. The same tables print as text, so that what a
// command prints and what its page shows are one.

#include <ostream>
#include <string>
#include <vector>

namespace cli
{

struct ReportTable
{
    std::vector<std::string> headers;
    std::vector<std::vector<std::string>> rows;

    // Columns padded to their widest cell, the first left-aligned and the
    // others right-aligned, separated by two spaces.
    void Print(std::ostream& out) const;
};

// An image file beside the page, shown at least 'minimumWidth' pixels wide
// (small textures are enlarged without smoothing).
struct ReportPicture
{
    std::string file; // relative to the page
    std::string caption;
    unsigned width = 0, height = 0;
};

class HtmlReport
{
public:
    explicit HtmlReport(const std::string& title);

    void AddParagraph(const std::string& text);
    void AddTable(const ReportTable& table);
    // Pictures side by side under a heading.
    void AddPictures(const std::string& heading, const std::vector<ReportPicture>& pictures,
                     unsigned minimumWidth = 256);

    std::string Html() const;
    // Writes the page to 'path'; false with a reason.
    bool Write(const std::string& path, std::string& reason) const;

private:
    std::string m_title;
    std::string m_body;
};

// Text with &, <, >, " and ' as entities.
std::string HtmlEscape(const std::string& text);

} // namespace cli

#endif
