#ifndef ORBTEX_PROGRESS_LINE_H
#define ORBTEX_PROGRESS_LINE_H

// One updating line on standard error while convert works, shown only when
// standard error is a terminal and the user did not ask for quiet. For one
// file it appears while the ORBTC optimiser reports its passes: the surface
// being compressed of how many, its pass and the time so far. For a batch it
// shows from the start how many files are done of the total and the file most
// recently heard of, with its pass where the codec reports one.
//
// Files may be converted on several threads at once: each thread tells which
// file it works on, and the codec's reports, which come on the compressing
// thread, are counted for that file.

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <list>
#include <mutex>
#include <string>
#include <thread>

namespace cli
{

struct ProgressWork; // a file in hand

class ProgressLine
{
public:
    // 'files': how many files the command converts; 'batch' makes the line
    // show files done of the total.
    ProgressLine(unsigned files, bool batch, bool quiet);
    ~ProgressLine(); // clears the line and stops listening
    ProgressLine(const ProgressLine&) = delete;
    ProgressLine& operator=(const ProgressLine&) = delete;

    // The calling thread works on 'label' until the File is destroyed, which
    // counts the file done.
    class File
    {
    public:
        File(ProgressLine& line, const std::string& label);
        ~File();
        File(const File&) = delete;
        File& operator=(const File&) = delete;
        // How many surfaces the codec will compress.
        void SetSurfaces(unsigned surfaces);

    private:
        ProgressLine& m_line;
        ProgressWork* m_work;
    };

    // Writes 'text' and a newline to 'stream', erasing the progress line
    // first and drawing it again after; safe from any thread.
    void PrintLine(std::FILE* stream, const std::string& text);

private:
    void Report(unsigned pass, unsigned passes, unsigned width, unsigned height);
    // 'labelCut': characters to leave out of the start of the label.
    std::string Text(double seconds, size_t labelCut) const;
    void Draw(std::chrono::steady_clock::time_point now);
    void Erase();
    void Tick();

    const unsigned m_files;
    const bool m_batch;
    const bool m_active;
    const std::chrono::steady_clock::time_point m_start;

    std::mutex m_mutex; // guards everything below
    std::list<ProgressWork> m_work; // incomplete element types are fine from C++17
    const ProgressWork* m_latest = nullptr; // the file the line shows
    unsigned m_done = 0;
    bool m_shown = false;
    std::chrono::steady_clock::time_point m_lastDrawn;
    bool m_stopping = false;
    std::condition_variable m_wake;
    std::thread m_ticker; // redraws the time while the line shows
};

} // namespace cli

#endif
