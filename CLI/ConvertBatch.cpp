#include "ConvertBatch.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <filesystem>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "CliSupport.h"
#include "ConvertPipeline.h"
#include "ImageFiles.h"
#include "OutputWriter.h"
#include "ProgressLine.h"
#include "TextureInput.h"

namespace cli
{

namespace
{

// The line --verbose prints for a converted file.
std::string VerboseLine(const std::string& input, const std::string& output, const FileResult& result)
{
    char times[96];
    std::snprintf(times, sizeof times, "load %.3f s, convert %.3f s, write %.3f s", result.seconds[0],
                  result.seconds[1], result.seconds[2]);
    std::string line = input + " -> " + output + ": " + result.written + ", " + times;
    if (result.measured)
        line += result.psnr == -1.0f ? ", identical to the source" : ", PSNR " + DecibelsText(result.psnr) + " dB";
    return line;
}

// Whether an input of a batch is one of the files a folder contributes.
bool Convertible(const std::filesystem::path& path)
{
    const std::string extension = FileExtension(path.string());
    return IsReadableImageExtension(extension) || extension == ".orb" || extension == ".dds" ||
           extension == ".ktx" || extension == ".ktx2" || extension == ".astc";
}

// The files of a batch: each input, and in place of a folder the image and
// texture files in it, by name. A folder without any, or unreadable, is
// reported and marks 'failed'.
std::vector<std::string> BatchFiles(const std::vector<std::string>& inputs, bool& failed)
{
    std::vector<std::string> files;
    for (const std::string& input : inputs)
    {
        std::error_code error;
        if (!std::filesystem::is_directory(input, error))
        {
            files.push_back(input);
            continue;
        }
        std::vector<std::string> found;
        for (std::filesystem::directory_iterator it(input, error), end; !error && it != end; it.increment(error))
            if (it->is_regular_file(error) && Convertible(it->path()))
                found.push_back(it->path().string());
        if (error || found.empty())
        {
            PrintError(input, error ? "cannot read folder: " + error.message() : "holds no image or texture file");
            failed = true;
        }
        std::sort(found.begin(), found.end());
        files.insert(files.end(), found.begin(), found.end());
    }
    return files;
}

// -o DIR: every file of the inputs to DIR/NAME.EXT, on --jobs threads.
int RunBatch(const ConvertOptions& options, const Target& target)
{
    bool anyFailed = false;
    const std::vector<std::string> files = BatchFiles(options.inputs, anyFailed);
    ProtectedInputs inputs;
    for (const std::string& file : files)
        inputs.Add(file);

    // Each file's output; a name that an earlier file takes is a failure.
    struct Job
    {
        std::string input, output;
    };
    std::vector<Job> jobs;
    std::map<std::string, std::string> taken;
    for (const std::string& input : files)
    {
        const std::string output =
            (std::filesystem::path(options.outDirectory) / std::filesystem::path(input).stem()).string() +
            options.extension;
        const auto earlier = taken.emplace(output, input);
        const std::string overwritten = inputs.At(output);
        if (!earlier.second)
            PrintError(input, "its output " + output + " is also the output of " + earlier.first->second);
        else if (!overwritten.empty())
            PrintError(input, OverwriteReason(input, output, overwritten));
        else
        {
            jobs.push_back({input, output});
            continue;
        }
        anyFailed = true;
    }
    std::error_code error;
    if (!jobs.empty() && !std::filesystem::create_directories(options.outDirectory, error) && error)
    {
        PrintError(options.outDirectory, "cannot create folder: " + error.message());
        return kExitFailure;
    }

    ProgressLine progress(unsigned(files.size()), true, options.quiet);
    std::atomic<size_t> next{0};
    std::atomic<bool> failed{anyFailed};
    const auto work = [&] {
        for (size_t i; (i = next++) < jobs.size();)
        {
            FileResult result;
            const bool converted = ConvertFile(options, target, inputs, jobs[i].input, jobs[i].output, progress, result);
            StopIfCancelled(); // after a signal, no line for a stopped file
            if (!converted)
            {
                progress.PrintLine(stderr, ErrorLine(result.failedPath, result.reason));
                failed = true;
            }
            else if (options.verbose)
                progress.PrintLine(stdout, VerboseLine(jobs[i].input, jobs[i].output, result));
        }
    };
    const unsigned threads = std::min<size_t>(
        options.jobs ? unsigned(options.jobs) : std::max(1u, std::thread::hardware_concurrency()), jobs.size());
    std::vector<std::thread> helpers;
    for (unsigned i = 1; i < threads; ++i)
        helpers.emplace_back(work);
    work();
    for (std::thread& helper : helpers)
        helper.join();
    return failed ? kExitFailure : kExitOk;
}

// IN to OUT, not over IN itself unless --force.
int RunOne(const ConvertOptions& options)
{
    Target target;
    std::string reason;
    const std::string& input = options.inputs[0];
    const std::string outExtension = FileExtension(options.output);
    if (KindOfOutput(outExtension, options.legacyApi) == OutputKind::Native && outExtension != ".orb")
    {
        PrintError(options.output, "cannot write '" + outExtension +
                                       "' files; use .orb, .dds, .ktx, .ktx2, .astc, .h, .png, .tga or .bmp");
        return kExitFailure;
    }
    if (!ReadTarget(options, target, reason))
    {
        PrintError(input, reason);
        return kExitFailure;
    }
    ProtectedInputs inputs;
    if (!options.force)
        inputs.Add(input);
    const std::string overwritten = inputs.At(options.output);
    if (!overwritten.empty())
    {
        PrintError(input, OverwriteReason(input, options.output, overwritten) + " (--force writes over it)");
        return kExitFailure;
    }
    ProgressLine progress(1, false, options.quiet);
    FileResult result;
    const bool converted = ConvertFile(options, target, inputs, input, options.output, progress, result);
    StopIfCancelled();
    if (!converted)
    {
        progress.PrintLine(stderr, ErrorLine(result.failedPath, result.reason));
        return kExitFailure;
    }
    if (options.verbose)
        progress.PrintLine(stdout, VerboseLine(input, options.output, result));
    return kExitOk;
}

} // namespace

int RunConversions(const ConvertOptions& options)
{
    if (!options.batch)
        return RunOne(options);
    Target target;
    std::string reason;
    if (!ReadTarget(options, target, reason))
        return UsageError("convert", reason);
    return RunBatch(options, target);
}

} // namespace cli
