#include "ProgressLine.h"

#include <cstdio>
#include <unistd.h>

#include "Codecs/ORBTC/fnzj/wrapper.h"

namespace cli
{

ProgressLine::ProgressLine(const std::string& label, unsigned surfaces, bool quiet)
    : m_label(label), m_surfaces(surfaces), m_active(!quiet && isatty(STDERR_FILENO)),
      m_start(std::chrono::steady_clock::now()), m_lastShown(m_start)
{
    if (!m_active)
        return;
    orbtexture::FNZJSetProgressHook(
        [](const orbtexture::FNZJProgressEvent& event, void* user) {
            ProgressLine& line = *static_cast<ProgressLine*>(user);
            if (event.pass == 0)
                ++line.m_surface;
            line.Show(event.pass, event.passCount, event.width, event.height);
        },
        this);
}

ProgressLine::~ProgressLine()
{
    if (!m_active)
        return;
    orbtexture::FNZJSetProgressHook(nullptr, nullptr);
    if (m_shown)
        std::fputs("\r\033[K", stderr);
}

std::string ProgressLine::Format(const std::string& label, unsigned surface, unsigned surfaces, unsigned pass,
                                 unsigned passes, unsigned width, unsigned height, double seconds)
{
    char text[256];
    std::snprintf(text, sizeof(text), "%s: surface %u of %u (%ux%u), pass %u of %u, %.1f s", label.c_str(),
                  surface, surfaces, width, height, pass, passes, seconds);
    return text;
}

void ProgressLine::Show(unsigned pass, unsigned passes, unsigned width, unsigned height)
{
    const auto now = std::chrono::steady_clock::now();
    // At most ten updates a second, but every surface's start and end.
    if (m_shown && pass != 0 && pass != passes && now - m_lastShown < std::chrono::milliseconds(100))
        return;
    m_lastShown = now;
    m_shown = true;
    const double seconds = std::chrono::duration<double>(now - m_start).count();
    const unsigned surface = m_surface == 0 ? 1 : m_surface > m_surfaces ? m_surfaces : m_surface;
    std::fprintf(stderr, "\r\033[K%s",
                 Format(m_label, surface, m_surfaces, pass, passes, width, height, seconds).c_str());
    std::fflush(stderr);
}

} // namespace cli
