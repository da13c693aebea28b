#include "HtmlReport.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iomanip>

namespace cli
{

void ReportTable::Print(std::ostream& out) const
{
    std::vector<size_t> widths(headers.size(), 0);
    const auto measure = [&](const std::vector<std::string>& cells) {
        for (size_t i = 0; i < cells.size() && i < widths.size(); ++i)
            widths[i] = std::max(widths[i], cells[i].size());
    };
    measure(headers);
    for (const auto& row : rows)
        measure(row);
    const auto line = [&](const std::vector<std::string>& cells) {
        for (size_t i = 0; i < cells.size() && i < widths.size(); ++i)
            out << (i ? "  " : "") << (i ? std::right : std::left) << std::setw(int(widths[i])) << cells[i];
        out << std::left << "\n";
    };
    line(headers);
    for (const auto& row : rows)
        line(row);
}

std::string HtmlEscape(const std::string& text)
{
    std::string escaped;
    for (const char c : text)
        switch (c)
        {
        case '&': escaped += "&amp;"; break;
        case '<': escaped += "&lt;"; break;
        case '>': escaped += "&gt;"; break;
        case '"': escaped += "&quot;"; break;
        case '\'': escaped += "&#39;"; break;
        default: escaped += c;
        }
    return escaped;
}

HtmlReport::HtmlReport(const std::string& title) : m_title(title) {}

void HtmlReport::AddParagraph(const std::string& text) { m_body += "<p>" + HtmlEscape(text) + "</p>\n"; }

void HtmlReport::AddTable(const ReportTable& table)
{
    m_body += "<table>\n<tr>";
    for (const std::string& header : table.headers)
        m_body += "<th>" + HtmlEscape(header) + "</th>";
    m_body += "</tr>\n";
    for (const auto& row : table.rows)
    {
        m_body += "<tr>";
        for (const std::string& cell : row)
            m_body += "<td>" + HtmlEscape(cell) + "</td>";
        m_body += "</tr>\n";
    }
    m_body += "</table>\n";
}

void HtmlReport::AddPictures(const std::string& heading, const std::vector<ReportPicture>& pictures,
                             unsigned minimumWidth)
{
    m_body += "<h2>" + HtmlEscape(heading) + "</h2>\n<div class=\"row\">\n";
    for (const ReportPicture& picture : pictures)
    {
        // Whole multiples, so that every pixel stays a square.
        const unsigned scale =
            picture.width && picture.width < minimumWidth ? (minimumWidth + picture.width - 1) / picture.width : 1;
        m_body += "<figure><img src=\"" + HtmlEscape(picture.file) + "\" width=\"" +
                  std::to_string(picture.width * scale) + "\" height=\"" + std::to_string(picture.height * scale) +
                  "\" alt=\"" + HtmlEscape(picture.caption) + "\"><figcaption>" + HtmlEscape(picture.caption) +
                  "</figcaption></figure>\n";
    }
    m_body += "</div>\n";
}

std::string HtmlReport::Html() const
{
    return "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n<title>" + HtmlEscape(m_title) +
           "</title>\n<style>\n"
           "body { font-family: sans-serif; margin: 1.5em; }\n"
           "table { border-collapse: collapse; }\n"
           "th, td { border: 1px solid #999; padding: 0.2em 0.6em; }\n"
           "td { text-align: right; } td:first-child { text-align: left; }\n"
           ".row { display: flex; flex-wrap: wrap; gap: 1em; }\n"
           "figure { margin: 0; }\n"
           "img { image-rendering: pixelated; background: repeating-conic-gradient(#ccc 0 25%, #fff 0 50%) 0 0 / "
           "16px 16px; }\n"
           "</style>\n</head>\n<body>\n<h1>" +
           HtmlEscape(m_title) + "</h1>\n" + m_body + "</body>\n</html>\n";
}

bool HtmlReport::Write(const std::string& path, std::string& reason) const
{
    errno = 0;
    std::ofstream out(path, std::ios::binary);
    const std::string html = Html();
    out.write(html.data(), std::streamsize(html.size()));
    out.close();
    if (!out)
    {
        reason = std::string("cannot write file") + (errno ? ": " + std::string(std::strerror(errno)) : "");
        return false;
    }
    return true;
}

} // namespace cli
