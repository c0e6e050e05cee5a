#include "hosts/simulated/gpx/gpx_file.h"

#include "tests/support/prelude.h"
#include "tests/support/temporary_directory.h"

namespace quomi::simulated {
namespace {

std::string gpx(const std::string& content) {
    return "<?xml version=\"1.0\"?>\n<gpx version=\"1.1\" xmlns=\"http://www.topografix.com/GPX/1/1\">\n" + content +
           "</gpx>\n";
}

std::string track(const std::string& points) {
    return gpx("<trk><trkseg>\n" + points + "</trkseg></trk>");
}

TEST(GpxFileTest, ReadsThePointsOfAllTracksAndSegments) {
    const auto read = parseGpx(
        "\xEF\xBB\xBF<!-- made by hand --><g:gpx version='1.1' xmlns:g='http://www.topografix.com/GPX/1/1'>"
        "<g:wpt lat='1' lon='1'><g:time>2020-01-01T00:00:00Z</g:time></g:wpt>"
        "<g:trk><g:name>K&amp;&lt;&#228;</g:name><g:trkseg>"
        "<g:trkpt lat=' +51.401515267789363861083984375 ' lon='-180'><g:ele>-1</g:ele>"
        "<g:time> 2021-09-02T09:10:09.250+02:00 </g:time></g:trkpt>"
        "</g:trkseg><g:trkseg/><g:trkseg>"
        "<g:trkpt lat='-9e1' lon='1.5'><g:extensions><x:time xmlns:x='x'>no time</x:time></g:extensions></g:trkpt>"
        "</g:trkseg></g:trk>"
        "<g:rte><g:rtept lat='2' lon='2'/></g:rte>"
        "<g:trk><g:trkseg><g:trkpt lat='0' lon='0'><g:time><![CDATA[2021-09-02]]><!-- UTC "
        "-->T07:10:19.250</g:time></g:trkpt>"
        "<g:trkpt lat='0' lon='1'><g:time/></g:trkpt></g:trkseg></g:trk></g:gpx>",
        "t.gpx");
    ASSERT_TRUE(read);
    using std::chrono_literals::operator""s;
    EXPECT_EQ(*read, (Track{{0s, {51.401515267789363861083984375, -180}, {}},
                            {5s, {-90, 1.5}, {}},
                            {10s, {0, 0}, {}},
                            {10s, {0, 1}, {}}}));
}

TEST(GpxFileTest, SaysWhereAFileIsWrong) {
    const std::string good = "<trkpt lat='1' lon='2'><time>2021-09-02T07:10:09Z</time></trkpt>\n";
    const Table<std::string, const char*> cases = {
        {"", "t.gpx:1: expected XML: "},
        {"\n\nno", "t.gpx:3: expected XML: "},
        {gpx("\n\n<trk>") + "</trk>", "t.gpx:5: expected XML: "},
        {"<?xml version='1.0'?>\n<!DOCTYPE gpx [<!ENTITY a 'ha'><!ENTITY b '&a;&a;'>]>\n<gpx version='1.1'/>",
         "t.gpx:1: expected no document type declaration"},
        {"<!DOCTYPE gpx [<!ENTITY a '", "t.gpx:1: expected "},
        {"\n<kml/>", "t.gpx:2: expected the element gpx, found \"kml\""},
        {"<gpx version='2'/>", "t.gpx:1: version: expected 1.1, found \"2\""},
        {gpx("<wpt lat='1' lon='2'/>"), "t.gpx:2: expected a track with a point"},
        {gpx("<trk><trkseg/></trk>"), "t.gpx:2: expected a track with a point"},
        {track("<trkpt lat='1' lon='2'/>"), "t.gpx:1: expected a track whose points have times"},
        {track(good + "<trkpt lon='2'/>"), "t.gpx:5: lat: expected degrees from -90 to 90, found nothing"},
        {track(good + good + "<trkpt lat='90.1' lon='2'/>"), "t.gpx:6: lat: expected degrees from -90 to 90, found "},
        {track(good + "<trkpt lat='1' lon='-181'/>"),
         "t.gpx:5: lon: expected degrees from -180 to 180, found \"-181\""},
        {track("<trkpt lat='nan' lon='2'/>"), "t.gpx:4: lat: "},
        {track("<trkpt lat='1' lon='inf'/>"), "t.gpx:4: lon: "},
        {track("<trkpt lat='1,5' lon='2'/>"), "t.gpx:4: lat: "},
        {track("<trkpt lat='0x10' lon='2'/>"), "t.gpx:4: lat: "},
        {track(good + "<trkpt lat='1' lon='2'>\n<time>today</time></trkpt>"), "t.gpx:6: time: expected an ISO 8601"},
    };
    for (const auto& [text, told] : cases) {
        std::optional<Error> error;
        EXPECT_FALSE(parseGpx(text, "t.gpx", &error)) << text;
        ASSERT_TRUE(error) << text;
        EXPECT_EQ(error->code, 2);
        EXPECT_THAT(error->localizedDescription().value_or(""), StartsWith(told));
    }
    std::optional<Error> error;
    EXPECT_FALSE(readGpxFile("/nowhere/t.gpx", &error));
    EXPECT_EQ(error->code, 1);
    EXPECT_EQ(error->localizedDescription(), "/nowhere/t.gpx: no such file");
}

TEST(GpxFileTest, DeepNestingIsNoDanger) {
    std::string deep;
    for (int i = 0; i < 200000; ++i) deep += "<trk>";
    EXPECT_FALSE(parseGpx(gpx(deep), "t.gpx"));
    std::string closed = deep;
    for (int i = 0; i < 200000; ++i) closed += "</trk>";
    EXPECT_FALSE(parseGpx(gpx(closed), "t.gpx"));
}

}  // namespace
}  // namespace quomi::simulated
