// orbtex as a user runs it: help, usage errors, info and formats, their JSON
// read by Python's JSON parser.

#include <regex>

#include "RunOrbtex.h"

using namespace orbtexture;
using namespace testsupport;

namespace
{

// Parses the JSON on standard input (json.loads refuses anything malformed)
// and prints it back in the layout of info's text.
const char* const kInfoAsText = R"(import json, sys
for n, line in enumerate(sys.stdin):
    f = json.loads(line)
    items = f['metadata']
    f.update(count=len(items), s='' if len(items) == 1 else 's', pm='yes' if f['premultiplied'] else 'no')
    print(('\n' if n else '') + '''{file}
  container:      {container}
  size:           {width:d} x {height:d} x {depth:d}
  MIP levels:     {mipLevels:d}
  array members:  {arrayMembers:d}
  faces:          {faces:d}
  pixel format:   {pixelFormat}
  channel type:   {channelType}
  colour space:   {colourSpace}
  premultiplied:  {pm}
  data size:      {dataSize:d} bytes
  metadata:       {count} item{s}, {metadataSize:d} bytes'''.format(**f))
    for i in items:
        print('    fourCC {fourCC} "{fourCCText}", key {key:d}, {size:d} bytes'.format(**i) +
              (': ' + i['description'] if 'description' in i else ''))
    if f['shortData']:
        print('  short data:     %d bytes of pixel data missing (read as zeros)' % f['shortData'])
    print('  %s header:' % f['container'])
    print('\n'.join('    %s: %s' % (x['name'], x['value']) for x in f['containerFields']))
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
print('\nASTC formats are encoded and decoded by the astcenc program, %s on PATH.' %
      ('found' if f['astcenc'] else 'not found'))
for t in f['channelTypes']:
    print('  %-5s%s' % (t['short'], t['name']))
print('Colour spaces (--colour-space, --input-colour-space): ' + ', '.join(f['colourSpaces']))
)";

// Runs 'arguments' with the script reading its standard output.
RunResult ThroughPython(const ScratchDir& dir, const std::string& arguments, const char* script)
{
    WriteBytes(dir / "script.py", std::vector<uint8_t>(script, script + std::strlen(script)));
    return Orbtex(dir, arguments + " | python3 " + Quote(dir / "script.py"));
}

} // namespace

TEST(OrbtexCli, HelpAndUsageErrors)
{
    ScratchDir dir;
    const std::pair<const char*, const char*> helps[] = {{"--help", "COMMAND"}, {"info --help", "info"},
                                                         {"help demo", "demo"}};
    for (const auto& [help, usage] : helps)
    {
        const RunResult run = Orbtex(dir, help);
        EXPECT_EQ(run.status, 0) << help;
        EXPECT_EQ(run.out.rfind(std::string("usage: orbtex ") + usage, 0), 0u) << help;
    }
    const RunResult run = Orbtex(dir, "frobnicate");
    EXPECT_EQ(run.status, 2);
    EXPECT_NE(run.err.find("unknown command 'frobnicate'"), std::string::npos);
    for (const char* arguments : {"", "info", "info --colour x.orb", "demo --out"})
        EXPECT_EQ(Orbtex(dir, arguments).status, 2) << arguments;
}

// info describes the format, the library's items and foreign ones, and names
// the container with the fields of its header; --json gives every field of
// the text, one object a line, and a file that fails on standard error only.
TEST(OrbtexCli, InfoDescribesEveryFileInTextAndJson)
{
    ScratchDir dir;
    // Every item of the library's own that info decodes and two foreign ones,
    // the second's fourCC a backslash, a quote and a control character, which
    // info writes as \xHH; the name holds a quote, escaped in JSON.
    CORBTexture cube = Filled(CORBTextureHeader(PixelType('r', 'g', 'b', 0, 5, 6, 5, 0).PixelTypeID, 16, 32, 1, 2, 3, 6,
                                                eColourSpaceSRGB, eVarUnsignedShortNorm, true));
    cube.setCubeMapOrder("XxYyZz");
    cube.setBumpMap(2.5f, "xyz");
    cube.setBorder(1, 2, 3);
    cube.setOrientation(EORBTOrientation(eOrientLeft | eOrientUp));
    const uint8_t blob[5] = {1, 2, 3, 4, 5};
    cube.addMetaData(MetaDataBlock(0x4F4D4544, 9, 5, blob));
    cube.addMetaData(MetaDataBlock(0x01225C41, 9, 3, blob));
    ASSERT_TRUE(cube.saveFile((dir / "cube \"map\".orb").c_str()));
    ASSERT_TRUE(Filled(CORBTextureHeader(ePF_ETC1, 8, 8)).saveFile((dir / "etc.orb").c_str()));
    CORBTexture pattern = Pattern(8, 4, 2);
    pattern.setOrientation(eOrientUp);
    ASSERT_TRUE(pattern.saveFile((dir / "t.dds").c_str()));
    ASSERT_TRUE(pattern.saveFile((dir / "t.ktx").c_str()));
    ASSERT_TRUE(pattern.saveFileLegacyORB((dir / "t.orb").c_str(), eLegacyApi1));
    // Data shorter than declared are allowed, read as zeros; info reads headers
    // only, so a header declaring 4 GiB over a 56-byte file is answered at once.
    WriteBytes(dir / "short.orb", NativeFile(ORBStandard8PixelType, 4, 4, 59));
    WriteBytes(dir / "vast.orb", NativeFile(ORBStandard8PixelType, 65535, 16384, 4));
    std::string files;
    for (const char* name : {"cube \"map\".orb", "etc.orb", "t.dds", "t.ktx", "t.orb", "short.orb", "vast.orb"})
        files += " " + Quote(dir / name);
    const RunResult text = Orbtex(dir, "info --allow-short" + files);
    ASSERT_EQ(text.status, 0) << text.err;
    for (const char* expected :
         {"size:           32 x 16 x 1", "MIP levels:     2", "array members:  3", "faces:          6",
          "pixel format:   r5g6b5", "channel type:   UnsignedShortNorm", "colour space:   sRGB",
          "premultiplied:  yes", "cube-map order \"XxYyZz\"", "bump map, scale 2.5, order \"xyz\"",
          "border 1 x 2 x 3", "orientation x left, y up, z in", "0x4F4D4544 \"DEMO\", key 9, 5 bytes",
          "\"A\\x5C\\x22\\x01\", key 9", "metadata:       6 items", "pixel format:   ETC1", "  container:      dds",
          "  container:      ktx", "  container:      legacy orb (version 2)", "    numberOfMipmapLevels: 2",
          "short data:     5 bytes", "size:           65535 x 16384 x 1",
          "data size:      4294901760 bytes\n  metadata:       0 items, 0 bytes\n"
          "  short data:     4294901756 bytes of pixel data missing (read as zeros)\n"})
        EXPECT_NE(text.out.find(expected), std::string::npos) << expected << "\n" << text.out;
    EXPECT_EQ(text.out.find("short data:"), text.out.find("short data:     5 bytes")); // none before
    const RunResult json = ThroughPython(dir, "info --allow-short --json" + files, kInfoAsText);
    ASSERT_EQ(json.status, 0) << json.err;
    EXPECT_EQ(json.out, text.out);

    const RunResult mixed = Orbtex(dir, "info --json " + Quote(dir / "t.ktx") + " " + Quote(dir / "none.orb"));
    EXPECT_EQ(mixed.status, 1);
    EXPECT_EQ(CountLines(mixed.out), 1);
    EXPECT_EQ(mixed.err, "orbtex: " + (dir / "none.orb") + ": cannot open file: No such file or directory\n");
}

// formats names every format, channel type and colour space, and marks what
// convert writes and reads, the DXT path included; the JSON gives every line
// of the text, and the table's rows in order.
TEST(OrbtexCli, FormatsInTextAndJson)
{
    ScratchDir dir;
    const RunResult text = Orbtex(dir, "formats");
    for (const char* name : {"ORBTC_4bpp_RGB", "ASTC_6x6x6", "r5g6b5", "uf   UnsignedFloat", "linear, srgb"})
        EXPECT_NE(text.out.find(name), std::string::npos) << name;
    EXPECT_EQ(text.out.find("NumCompressed"), std::string::npos);
    for (const char* row : {"DXT1 \\(BC1\\) .* yes +yes", "DXT2 .* yes +yes", "DXT3 \\(BC2\\) .* yes +yes",
                            "DXT5 \\(BC3\\) .* yes +yes", "BC4 .* - +-"})
        EXPECT_TRUE(std::regex_search(text.out, std::regex(std::string("\n  ") + row + "\n"))) << row;

    const RunResult json = ThroughPython(dir, "formats --json", kFormatsAsText);
    ASSERT_EQ(json.status, 0) << json.err;
    ASSERT_GT(Lines(json.out).size(), 60u);
    for (const std::string& line : Lines(json.out))
        EXPECT_NE(text.out.find(line + "\n"), std::string::npos) << line;
    const std::string table = json.out.substr(0, json.out.find("\n\n") + 1);
    EXPECT_NE(text.out.find(table), std::string::npos) << table;
}

// Each bad file is named on one line of its own, a legacy one with its
// container, and the good one is described.
TEST(OrbtexCli, InfoReportsEachBadFileOnOneLine)
{
    ScratchDir dir;
    WriteBytes(dir / "good.orb", NativeFile(ORBStandard8PixelType, 2, 2, 16));
    WriteBytes(dir / "junk.orb", std::vector<uint8_t>(100, 0x33));
    WriteBytes(dir / "short.orb", NativeFile(ORBStandard8PixelType, 2, 2, 13));
    WriteBytes(dir / "vast.orb", NativeFile(ORBStandard8PixelType, 65535, 16384, 4));
    std::filesystem::create_directory(dir / "dir.orb");
    std::vector<uint8_t> legacy(52 + 16, 0); // a version 2 header of an unknown format
    const uint32_t header[5] = {52, 2, 2, 0, 14};
    std::memcpy(legacy.data(), header, sizeof header);
    WriteBytes(dir / "legacy.orb", legacy);
    std::string files;
    for (const char* name : {"missing.orb", "good.orb", "junk.orb", "legacy.orb", "dir.orb", "short.orb", "vast.orb"})
        files += " " + Quote(dir / name);
    const RunResult run = Orbtex(dir, "info" + files);
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(CountLines(run.err), 6) << run.err;
    for (const char* message :
         {"missing.orb: cannot open file: No such file or directory\n", "junk.orb: not an .orb texture",
          "legacy.orb: legacy orb (version 2): no pixel format for legacy format 14\n", "dir.orb: is a directory\n",
          "short.orb: pixel data short by 3 bytes\n", "vast.orb: pixel data short by 4294901756 bytes\n"})
        EXPECT_NE(run.err.find(message), std::string::npos) << message << "\n" << run.err;
    EXPECT_NE(run.out.find(dir / "good.orb\n"), std::string::npos) << run.out;
    EXPECT_EQ(run.out.find("container:", run.out.find("container:") + 1), std::string::npos) << run.out;
}
