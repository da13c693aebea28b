// orbtex info --json and formats --json, read by Python's JSON parser.

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "ORBTexture.h"
#include "RunOrbtex.h"

using namespace orbtexture;
using testsupport::Orbtex;
using testsupport::Quote;
using testsupport::RunResult;
using testsupport::ScratchDir;

namespace
{

// Parses the JSON on standard input (json.loads refuses anything malformed)
// and prints it back in the layout of info's text.
const char* const kInfoAsText = R"(import json, sys
files = [json.loads(line) for line in sys.stdin]
out = []
for f in files:
    if out:
        out.append('')
    items = f['metadata']
    out += [f['file'],
            '  container:      ' + f['container'],
            '  size:           %d x %d x %d' % (f['width'], f['height'], f['depth']),
            '  MIP levels:     %d' % f['mipLevels'],
            '  array members:  %d' % f['arrayMembers'],
            '  faces:          %d' % f['faces'],
            '  pixel format:   ' + f['pixelFormat'],
            '  channel type:   ' + f['channelType'],
            '  colour space:   ' + f['colourSpace'],
            '  premultiplied:  ' + ('yes' if f['premultiplied'] else 'no'),
            '  data size:      %d bytes' % f['dataSize'],
            '  metadata:       %d item%s, %d bytes' % (len(items), '' if len(items) == 1 else 's', f['metadataSize'])]
    for item in items:
        line = '    fourCC %s "%s", key %d, %d bytes' % (item['fourCC'], item['fourCCText'], item['key'], item['size'])
        if 'description' in item:
            line += ': ' + item['description']
        out.append(line)
    if f['shortData']:
        out.append('  short data:     %d bytes of pixel data missing (read as zeros)' % f['shortData'])
    out.append('  %s header:' % f['container'])
    out += ['    %s: %s' % (field['name'], field['value']) for field in f['containerFields']]
print('\n'.join(out))
)";

// The same for formats: the table rows and the channel types.
const char* const kFormatsAsText = R"(import json, sys
f = json.load(sys.stdin)
for x in f['formats']:
    name = x['name'] + (' (%s)' % x['alias'] if x['alias'] else '')
    b = x['block']
    block = '%dx%d' % (b[0], b[1]) + ('x%d' % b[2] if b[2] > 1 else '')
    print('  %-18s%6s  %-7s%-7s%s' % (name, x['bitsPerPixel'] or '-', block, 'yes' if x['write'] else '-',
                                     'yes' if x['read'] else '-'))
print('')
print('ASTC formats are encoded and decoded by the astcenc program, %s on PATH.' %
      ('found' if f['astcenc'] else 'not found'))
for t in f['channelTypes']:
    print('  %-5s%s' % (t['short'], t['name']))
print('Colour spaces (--colour-space, --input-colour-space): ' + ', '.join(f['colourSpaces']))
)";

// Runs 'arguments' with the script reading its standard output.
RunResult ThroughPython(const ScratchDir& dir, const std::string& arguments, const char* script)
{
    testsupport::WriteBytes(dir / "script.py", std::vector<uint8_t>(script, script + std::strlen(script)));
    return Orbtex(dir, arguments + " | python3 " + Quote(dir / "script.py"));
}

} // namespace

TEST(OrbtexJson, InfoHasEveryFieldOfTheText)
{
    ScratchDir dir;
    CORBTexture cube = testsupport::TextureWithEveryItem();
    const uint8_t blob[3] = {1, 2, 3};
    // The name holds a quote, escaped in JSON; the fourCC a backslash, a quote
    // and a control character, which info writes as \xHH.
    cube.addMetaData(MetaDataBlock(0x01225C41, 9, 3, blob));
    ASSERT_TRUE(cube.saveFile((dir / "cube \"map\".orb").c_str()));

    CORBTexture plain(CORBTextureHeader(ORBStandard8PixelType, 4, 4));
    std::memset(plain.getDataPtr(), 7, plain.getDataSize());
    plain.setOrientation(eOrientUp);
    ASSERT_TRUE(plain.saveFile((dir / "plain.orb").c_str()));
    ASSERT_TRUE(plain.saveFile((dir / "plain.ktx").c_str()));
    ASSERT_TRUE(plain.saveFile((dir / "plain.dds").c_str()));
    std::vector<uint8_t> bytes = testsupport::ReadBytes(dir / "plain.orb");
    bytes.resize(bytes.size() - 5);
    testsupport::WriteBytes(dir / "short.orb", bytes);

    std::string files;
    for (const char* name : {"cube \"map\".orb", "plain.ktx", "plain.dds", "short.orb"})
        files += " " + Quote(dir / name);
    const RunResult text = Orbtex(dir, "info --allow-short" + files);
    ASSERT_EQ(text.status, 0) << text.err;
    const RunResult json = ThroughPython(dir, "info --allow-short --json" + files, kInfoAsText);
    ASSERT_EQ(json.status, 0) << json.err;
    EXPECT_EQ(json.out, text.out);
    EXPECT_NE(text.out.find("\"A\\x5C\\x22\\x01\", key 9"), std::string::npos) << text.out;

    // One object a line; a file that fails is reported on standard error only.
    const RunResult mixed = Orbtex(dir, "info --json " + Quote(dir / "plain.orb") + " " + Quote(dir / "none.orb"));
    EXPECT_EQ(mixed.status, 1);
    EXPECT_EQ(testsupport::CountLines(mixed.out), 1);
    EXPECT_EQ(mixed.err, "orbtex: " + (dir / "none.orb") + ": cannot open file: No such file or directory\n");
}

TEST(OrbtexJson, FormatsHasEveryRowOfTheText)
{
    ScratchDir dir;
    const RunResult text = Orbtex(dir, "formats");
    ASSERT_EQ(text.status, 0);
    const RunResult json = ThroughPython(dir, "formats --json", kFormatsAsText);
    ASSERT_EQ(json.status, 0) << json.err;
    std::vector<std::string> lines;
    for (size_t start = 0, end; (end = json.out.find('\n', start)) != std::string::npos; start = end + 1)
        lines.push_back(json.out.substr(start, end - start));
    ASSERT_GT(lines.size(), 60u);
    for (const std::string& line : lines)
        EXPECT_NE(text.out.find(line + "\n"), std::string::npos) << line;
    // The rows in order, from the first to the blank line.
    const std::string table = json.out.substr(0, json.out.find("\n\n") + 1);
    EXPECT_NE(text.out.find(table), std::string::npos) << table;
}
