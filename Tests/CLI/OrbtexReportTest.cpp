// orbtex compare --report: the page, its pictures and its table.

#include <map>
#include <sstream>

#include <stb_image.h>
#include <stb_image_write.h>

#include "RunOrbtex.h"

using namespace testsupport;

namespace
{

// Python's HTML parser lists the page: "img<TAB>src" for each image and
// "row<TAB>cell<TAB>cell..." for each table row.
const char* const kListPage = R"(import sys
from html.parser import HTMLParser
class Page(HTMLParser):
    def __init__(self):
        super().__init__()
        self.row = None
        self.cell = None
    def handle_starttag(self, tag, attrs):
        if tag == 'img':
            print('img\t' + dict(attrs)['src'])
        elif tag == 'tr':
            self.row = []
        elif tag in ('td', 'th'):
            self.cell = ''
    def handle_endtag(self, tag):
        if tag in ('td', 'th'):
            self.row.append(self.cell)
            self.cell = None
        elif tag == 'tr':
            print('\t'.join(['row'] + self.row))
    def handle_data(self, data):
        if self.cell is not None:
            self.cell += data
Page().feed(open(sys.argv[1], encoding='utf-8').read())
)";

// The words of a line, or its parts between 'separator's.
std::vector<std::string> Split(const std::string& line, char separator = ' ')
{
    std::vector<std::string> parts;
    std::istringstream in(line);
    for (std::string part; separator == ' ' ? bool(in >> part) : bool(std::getline(in, part, separator));)
        parts.push_back(part);
    return parts;
}

struct Image
{
    int width = 0, height = 0;
    std::vector<uint8_t> pixels; // rgba
};

// Headless Chromium's view of a page: appended to a copy of it beside the
// original, a script writes, once everything has loaded, the count of images,
// of those that did not load and the rows of each table. Empty when the
// browser cannot start. A screenshot of the page goes to 'screenshot'.
const char* const kChromium = "/usr/bin/chromium";

std::string BrowserView(const std::string& page, const std::string& screenshot)
{
    const char* const check = R"(<script>
window.addEventListener('load', () => {
  const images = Array.from(document.images);
  const broken = images.filter(i => !(i.complete && i.naturalWidth > 0)).length;
  const rows = Array.from(document.querySelectorAll('table')).map(t => t.rows.length);
  const out = document.createElement('pre');
  out.id = 'seen';
  out.textContent = 'images ' + images.length + ' broken ' + broken + ' rows ' + rows.join(' ');
  document.body.appendChild(out);
});
</script></body>)";
    std::string html = Slurp(page);
    html.replace(html.rfind("</body>"), 7, check);
    const std::string checked = (std::filesystem::path(page).parent_path() / "browser-check.html").string();
    WriteBytes(checked, std::vector<uint8_t>(html.begin(), html.end()));
    const std::string profile = (std::filesystem::path(page).parent_path() / "browser-profile").string();
    const std::string browser = std::string(kChromium) +
                                " --headless --no-sandbox --disable-gpu --disable-quic --no-first-run"
                                " --disable-background-networking --disable-component-update --disable-sync"
                                " --hide-scrollbars --user-data-dir=" + Quote(profile);
    const std::string dump = checked + ".dom";
    if (access(kChromium, X_OK) != 0 ||
        std::system(("timeout 120 " + browser + " --virtual-time-budget=20000 --dump-dom " +
                     Quote("file://" + checked) + " >" + Quote(dump) + " 2>/dev/null")
                        .c_str()) != 0)
        return "";
    std::system(("timeout 120 " + browser + " --window-size=1280,2000 --screenshot=" + Quote(screenshot) + " " +
                 Quote("file://" + page) + " >/dev/null 2>&1")
                    .c_str());
    const std::string dom = Slurp(dump);
    const size_t start = dom.find("<pre id=\"seen\">");
    return start == std::string::npos ? "no result" : dom.substr(start + 15, dom.find('<', start + 15) - start - 15);
}

Image Load(const std::string& path)
{
    Image image;
    int channels = 0;
    unsigned char* pixels = stbi_load(path.c_str(), &image.width, &image.height, &channels, 4);
    if (pixels)
        image.pixels.assign(pixels, pixels + size_t(image.width) * image.height * 4);
    stbi_image_free(pixels);
    return image;
}

// The page's images and table rows, as kListPage lists them.
void ListPage(const ScratchDir& dir, const std::string& page, std::vector<std::string>& images,
              std::vector<std::vector<std::string>>& rows)
{
    const std::string script = dir / "list.py", listing = dir / "listing";
    WriteBytes(script, std::vector<uint8_t>(kListPage, kListPage + std::strlen(kListPage)));
    ASSERT_EQ(std::system(("python3 " + Quote(script) + " " + Quote(page) + " >" + Quote(listing)).c_str()), 0);
    for (const std::string& line : Split(Slurp(listing), '\n'))
    {
        std::vector<std::string> cells = Split(line, '\t');
        if (cells[0] == "img")
            images.push_back(cells.at(1));
        else
            rows.emplace_back(cells.begin() + 1, cells.end());
    }
}

} // namespace

TEST(OrbtexReport, PageShowsEachResultAndThePrintedTable)
{
    ScratchDir dir;
    const int width = 16, height = 8;
    std::vector<uint8_t> original(width * height * 4);
    for (size_t i = 0; i < original.size(); ++i)
        original[i] = (i % 4 == 3) ? 255 : uint8_t((i * 53) ^ (i >> 3));
    ASSERT_TRUE(stbi_write_png((dir / "photo.png").c_str(), width, height, 4, original.data(), width * 4));
    ASSERT_EQ(Convert(dir, "photo.png", "photo-ETC1-q1.ktx", "--format ETC1 --quality 1").status, 0);
    ASSERT_EQ(Convert(dir, "photo.png", "photo-r5g6b5.orb", "--format r5g6b5").status, 0);
    ASSERT_EQ(Convert(dir, "photo.png", "small.png", "--resize 8x8").status, 0);
    WriteBytes(dir / "broken.orb", {1, 2, 3});

    const RunResult run = Orbtex(dir, "compare " + Quote(dir / "photo.png") + " " + Quote(dir / "photo-ETC1-q1.ktx") +
                                          " " + Quote(dir / "broken.orb") + " " + Quote(dir / "small.png") + " " +
                                          Quote(dir / "photo-r5g6b5.orb") + " --report " + Quote(dir / "report"));
    // The two bad results are named and left out; the others are reported.
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(CountLines(run.err), 2) << run.err;
    EXPECT_NE(run.err.find("orbtex: " + (dir / "broken.orb") + ": "), std::string::npos) << run.err;
    EXPECT_NE(run.err.find("orbtex: " + (dir / "small.png") + ": size 8x8x1 differs from 16x8x1"), std::string::npos)
        << run.err;

    std::vector<std::string> images;
    std::vector<std::vector<std::string>> rows;
    ListPage(dir, dir / "report/report.html", images, rows);

    // The table as printed, row for row and cell for cell.
    const std::vector<std::string> printed = Split(run.out, '\n');
    ASSERT_EQ(printed.size(), 4u) << run.out;
    ASSERT_EQ(rows.size(), 3u);
    for (size_t i = 0; i < rows.size(); ++i)
        EXPECT_EQ(Split(printed[i]), rows[i]) << printed[i];
    EXPECT_EQ(printed[3], "report: " + (dir / "report/report.html"));
    EXPECT_EQ(rows[0], (std::vector<std::string>{"file", "format", "quality", "bpp", "bytes", "psnr_db",
                                                 "alpha_psnr_db", "time_ms"}));
    EXPECT_EQ(rows[1][6], "-"); // ETC1 holds no alpha
    // Quality from the name, bits per pixel and bytes as stored.
    EXPECT_EQ(std::vector<std::string>(rows[1].begin(), rows[1].begin() + 5),
              (std::vector<std::string>{dir / "photo-ETC1-q1.ktx", "ETC1", "1", "4", "64"}));
    EXPECT_EQ(std::vector<std::string>(rows[2].begin(), rows[2].begin() + 5),
              (std::vector<std::string>{dir / "photo-r5g6b5.orb", "r5g6b5", "-", "16", "256"}));
    // The PSNR is compare's own overall figure.
    for (int row = 1; row <= 2; ++row)
    {
        const RunResult pair = Orbtex(dir, "compare " + Quote(dir / "photo.png") + " " + Quote(rows[row][0]));
        const std::vector<std::string> overall = Split(Split(pair.out, '\n').back());
        EXPECT_EQ(overall.back(), rows[row][5]) << pair.out;
    }

    // Each result row shows the original, the decoded result and the
    // difference, 8 times magnified, all files beside the page that decode.
    ASSERT_EQ(images.size(), 6u);
    for (const std::string& image : images)
    {
        EXPECT_EQ(image.find('/'), std::string::npos) << image;
        const Image loaded = Load(dir / ("report/" + image));
        EXPECT_EQ(loaded.width, width) << image;
        EXPECT_EQ(loaded.height, height) << image;
    }
    EXPECT_EQ(images[0], images[3]);
    EXPECT_EQ(Load(dir / ("report/" + images[0])).pixels, original);
    for (int row = 0; row < 2; ++row)
    {
        const Image decoded = Load(dir / ("report/" + images[3 * row + 1]));
        const Image difference = Load(dir / ("report/" + images[3 * row + 2]));
        int changed = 0;
        for (size_t i = 0; i < original.size(); ++i)
        {
            const int delta = std::abs(int(original[i]) - int(decoded.pixels[i])) * 8;
            const int expected = i % 4 == 3 ? 255 - std::min(delta, 255) : std::min(delta, 255);
            ASSERT_NEAR(difference.pixels[i], expected, 1) << images[3 * row + 2] << " byte " << i;
            changed += delta != 0;
        }
        EXPECT_GT(changed, 0) << images[3 * row + 1];
    }
    // Only the page and its pictures, no temporary files.
    size_t files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(dir / "report"))
        files += entry.path().filename() != "report.html";
    EXPECT_EQ(files, 5u);
}

TEST(OrbtexReport, AnUnreadableOriginalLeavesNothing)
{
    ScratchDir dir;
    const uint8_t pixel[4] = {1, 2, 3, 255};
    ASSERT_TRUE(stbi_write_png((dir / "a.png").c_str(), 1, 1, 4, pixel, 4));
    const RunResult run =
        Orbtex(dir, "compare " + Quote(dir / "none.png") + " " + Quote(dir / "a.png") + " --report " + Quote(dir / "r"));
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(CountLines(run.err), 1);
    EXPECT_FALSE(std::filesystem::exists(dir / "r"));
}

TEST(OrbtexReport, DemoPageShowsEveryConversionAndThePrintedTables)
{
    ScratchDir dir;
    const RunResult run = Orbtex(dir, "demo --out " + Quote(dir / "demo"));
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_TRUE(run.err.empty()) << run.err;
    EXPECT_NE(run.out.find("report:         " + (dir / "demo/report.html")), std::string::npos);
    for (const char* line : {"file reload:    identical", "memory reload:  identical", "byte-identical"})
        EXPECT_NE(run.out.find(line), std::string::npos) << line;

    std::vector<std::string> images;
    std::vector<std::vector<std::string>> rows;
    ListPage(dir, dir / "demo/report.html", images, rows);

    // The printed tables (indented under their headings), row for row.
    std::vector<std::vector<std::string>> printed;
    bool inTable = false;
    for (const std::string& line : Split(run.out, '\n'))
    {
        if (line.find("conversions (") != std::string::npos)
            inTable = true;
        else if (line.rfind("    ", 0) != 0 || line.find("left out") != std::string::npos)
            inTable = false;
        else if (inTable)
            printed.push_back(Split(line));
    }
    ASSERT_EQ(printed.size(), rows.size());
    for (size_t i = 0; i < rows.size(); ++i)
        EXPECT_EQ(printed[i], rows[i]);

    // Each format is compared on what it holds.
    std::map<std::string, std::vector<std::string>> byFormat;
    for (const auto& row : rows)
        byFormat.emplace(row[0], row);
    EXPECT_EQ(byFormat.at("EAC_R11")[5], "R");
    EXPECT_EQ(byFormat.at("EAC_RG11")[5], "RG");
    EXPECT_EQ(byFormat.at("EAC_R11")[8], "none");
    EXPECT_EQ(byFormat.at("DXT1")[8], "0(1-bit)"); // against the alpha thresholded at 128
    EXPECT_EQ(byFormat.at("ETC1")[8], "opaque");
    EXPECT_EQ(byFormat.at("ORBTC_4bpp_RGB")[8], "opaque");
    EXPECT_EQ(byFormat.at("ORBTC_4bpp_RGBA")[8].find_first_not_of("0123456789"), std::string::npos);
    // Colour is compared where the card is visible in the format: 1-bit
    // alpha keeps the colour of what it shows, and ORBTCII (which holds
    // alpha) beats ORBTC RGBA at quality 0.
    EXPECT_EQ(byFormat.at("ORBTC_4bpp_RGBA")[5], "RGB(a>0)");
    EXPECT_EQ(byFormat.at("ETC2_RGBA")[5], "RGB(a>0)");
    for (const char* format : {"DXT1", "ETC2_RGB_A1"})
    {
        EXPECT_EQ(byFormat.at(format)[5], "RGB(a>=128)");
        EXPECT_GT(std::stod(byFormat.at(format)[7]), 35.0) << format;
    }
    EXPECT_GT(std::stod(byFormat.at("ORBTCII_4bpp")[7]), std::stod(byFormat.at("ORBTC_4bpp_RGBA")[7]));

    // Three pictures a conversion, every one beside the page and decoding at
    // the size of its source (the card or the photograph).
    const size_t conversions = rows.size() - 2;
    ASSERT_EQ(images.size(), 3 * conversions);
    for (const std::string& image : images)
    {
        const Image loaded = Load(dir / ("demo/" + image));
        const int side = image.rfind("photo", 0) == 0 ? 64 : 256;
        EXPECT_EQ(loaded.width, side) << image;
        EXPECT_EQ(loaded.height, side) << image;
    }

    // The same in a real browser, whose screenshot stays in the build folder.
    const std::string screenshot =
        (std::filesystem::path(ORBTEX_PROGRAM).parent_path().parent_path() / "demo-report.png").string();
    const std::string seen = BrowserView(dir / "demo/report.html", screenshot);
    if (seen.empty())
        GTEST_SKIP() << "headless Chromium (" << kChromium << ", Debian chromium) cannot start: page not seen";
    size_t tableRows = 0;
    for (const std::string& word : Split(seen.substr(seen.find(" rows ") + 6), ' '))
        tableRows += std::stoul(word);
    EXPECT_EQ(seen.substr(0, seen.find(" rows ")), "images " + std::to_string(images.size()) + " broken 0");
    EXPECT_EQ(tableRows, rows.size()) << seen; // a header and a row per result in each table
    EXPECT_GT(std::filesystem::file_size(screenshot), 10000u);
}
