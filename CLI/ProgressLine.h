#ifndef ORBTEX_PROGRESS_LINE_H
#define ORBTEX_PROGRESS_LINE_H

// One updating line on standard error while the optimiser works: the surface
// being compressed of how many, its pass, and the time so far. Shown only
// when standard error is a terminal and the user did not ask for quiet.

#include <chrono>
#include <string>

namespace cli
{

class ProgressLine
{
public:
    // 'surfaces': how many surfaces the conversion compresses; 'label' names
    // the work (a file name).
    ProgressLine(const std::string& label, unsigned surfaces, bool quiet);
    ~ProgressLine(); // clears the line and stops listening
    ProgressLine(const ProgressLine&) = delete;
    ProgressLine& operator=(const ProgressLine&) = delete;

    bool Active() const { return m_active; }
    // The text shown for a state; public for tests.
    static std::string Format(const std::string& label, unsigned surface, unsigned surfaces, unsigned pass,
                              unsigned passes, unsigned width, unsigned height, double seconds);

private:
    void Show(unsigned pass, unsigned passes, unsigned width, unsigned height);

    std::string m_label;
    unsigned m_surfaces, m_surface = 0;
    bool m_active;
    bool m_shown = false;
    std::chrono::steady_clock::time_point m_start;
    std::chrono::steady_clock::time_point m_lastShown;
};

} // namespace cli

#endif
