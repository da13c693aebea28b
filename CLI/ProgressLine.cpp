#include "ProgressLine.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include "Codecs/ORBTC/fnzj/wrapper.h"

namespace cli
{

struct ProgressWork
{
    std::string label;
    unsigned surfaces = 1, surface = 0;
    unsigned pass = 0, passes = 0; // passes 0: no report yet
    unsigned width = 0, height = 0;
};

namespace
{

// The file the calling thread works on, for the codec's reports.
thread_local ProgressWork* tWork = nullptr;

constexpr auto kRedrawInterval = std::chrono::milliseconds(100);
constexpr auto kTickInterval = std::chrono::milliseconds(500);

// 0 when the terminal does not tell.
unsigned TerminalColumns()
{
    winsize size{};
    return ::ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 ? size.ws_col : 0;
}

} // namespace

ProgressLine::ProgressLine(unsigned files, bool batch, bool quiet)
    : m_files(files), m_batch(batch), m_active(!quiet && isatty(STDERR_FILENO)),
      m_start(std::chrono::steady_clock::now()), m_lastDrawn(m_start)
{
    if (!m_active)
        return;
    orbtexture::FNZJSetProgressHook(
        [](const orbtexture::FNZJProgressEvent& event, void* user) {
            static_cast<ProgressLine*>(user)->Report(event.pass, event.passCount, event.width, event.height);
        },
        this);
    m_ticker = std::thread([this] { Tick(); });
}

ProgressLine::~ProgressLine()
{
    if (!m_active)
        return;
    orbtexture::FNZJSetProgressHook(nullptr, nullptr);
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_stopping = true;
    }
    m_wake.notify_all();
    m_ticker.join();
    Erase();
}

ProgressLine::File::File(ProgressLine& line, const std::string& label) : m_line(line)
{
    const std::lock_guard<std::mutex> lock(line.m_mutex);
    line.m_work.emplace_back();
    m_work = &line.m_work.back();
    m_work->label = label;
    tWork = m_work;
    line.m_latest = m_work;
    if (line.m_active && line.m_batch)
        line.Draw(std::chrono::steady_clock::now());
}

ProgressLine::File::~File()
{
    const std::lock_guard<std::mutex> lock(m_line.m_mutex);
    tWork = nullptr;
    ++m_line.m_done;
    if (m_line.m_latest == m_work)
        m_line.m_latest = nullptr;
    for (auto it = m_line.m_work.begin(); it != m_line.m_work.end(); ++it)
        if (&*it == m_work)
        {
            m_line.m_work.erase(it);
            break;
        }
    if (!m_line.m_latest && !m_line.m_work.empty())
        m_line.m_latest = &m_line.m_work.back();
    if (m_line.m_active && m_line.m_batch)
        m_line.Draw(std::chrono::steady_clock::now());
}

void ProgressLine::File::SetSurfaces(unsigned surfaces)
{
    const std::lock_guard<std::mutex> lock(m_line.m_mutex);
    m_work->surfaces = surfaces;
}

void ProgressLine::Report(unsigned pass, unsigned passes, unsigned width, unsigned height)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    ProgressWork* work = tWork;
    if (!work)
        return;
    if (pass == 0)
        ++work->surface;
    work->pass = pass;
    work->passes = passes;
    work->width = width;
    work->height = height;
    m_latest = work;
    const auto now = std::chrono::steady_clock::now();
    // At most ten updates a second, but every surface's start and end.
    if (m_shown && pass != 0 && pass != passes && now - m_lastDrawn < kRedrawInterval)
        return;
    Draw(now);
}

std::string ProgressLine::Text(double seconds, size_t labelCut) const
{
    char text[512];
    int length = 0;
    if (m_batch)
        length = std::snprintf(text, sizeof text, "%u of %u files done, ", m_done, m_files);
    if (m_latest)
    {
        const ProgressWork& work = *m_latest;
        const unsigned surface = work.surface == 0 ? 1 : work.surface > work.surfaces ? work.surfaces : work.surface;
        const std::string label =
            labelCut ? "..." + work.label.substr(std::min(work.label.size(), labelCut + 3)) : work.label;
        length += std::snprintf(text + length, sizeof text - length, "%s", label.c_str());
        if (work.passes && length < int(sizeof text))
            length += std::snprintf(text + length, sizeof text - length, ": surface %u of %u (%ux%u), pass %u of %u",
                                    surface, work.surfaces, work.width, work.height, work.pass, work.passes);
    }
    if (length < int(sizeof text))
        std::snprintf(text + length, sizeof text - length, "%s%.1f s", m_latest ? ", " : "", seconds);
    return text;
}

void ProgressLine::Draw(std::chrono::steady_clock::time_point now)
{
    // One file shows only what the codec reports.
    if (!m_batch && (!m_latest || !m_latest->passes))
        return;
    m_lastDrawn = now;
    m_shown = true;
    const double seconds = std::chrono::duration<double>(now - m_start).count();
    std::string text = Text(seconds, 0);
    // A line longer than the terminal would wrap, and \r go back only to its
    // last row: the label loses its start, then the line its end.
    const unsigned columns = TerminalColumns();
    if (columns && text.size() >= columns)
    {
        text = Text(seconds, text.size() - columns + 1);
        text = text.substr(0, columns - 1);
    }
    std::fprintf(stderr, "\r\033[K%s", text.c_str());
    std::fflush(stderr);
}

void ProgressLine::Erase()
{
    if (!m_shown)
        return;
    std::fputs("\r\033[K", stderr);
    std::fflush(stderr);
    m_shown = false;
}

void ProgressLine::PrintLine(std::FILE* stream, const std::string& text)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    const bool redraw = m_shown;
    Erase();
    std::fprintf(stream, "%s\n", text.c_str());
    std::fflush(stream);
    if (redraw)
        Draw(std::chrono::steady_clock::now());
}

void ProgressLine::Tick()
{
    std::unique_lock<std::mutex> lock(m_mutex);
    while (!m_wake.wait_for(lock, kTickInterval, [this] { return m_stopping; }))
        if (m_shown)
            Draw(std::chrono::steady_clock::now());
}

} // namespace cli
