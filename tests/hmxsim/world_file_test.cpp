#include "world_file.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "make_world.h"

namespace {

using hmxsim::Document;
using hmxsim::World;

std::string complaintAbout(const std::string& text) {
    try {
        (void)hmxsim::readWorld(Document{"w.json", text});
        return "";
    } catch (const hmxsim::DocumentError& error) {
        return error.what();
    }
}

TEST(WorldFile, NamesFileLineAndPathOfWhatIsWrong) {
    const std::pair<std::string, std::string> cases[] = {
        {"", "w.json:1: syntax error while parsing value - unexpected end of input; expected '[', '{', or a literal"},
        {"{\n\"displaymanager\": [\n1,\n}",
         "w.json:4: displaymanager: syntax error while parsing value - unexpected '}'; expected '[', '{', or a literal"},
        {"[]", "w.json:1: expected object, found array"},
        {"{}\n{}", "w.json:2: syntax error while parsing value - unexpected '{'; expected end of input"},
        {"{\"displays\": []}", "w.json:1: displays: unknown key; known here: displaymanager, inputmanager, popupmanager"},
        {"{\"inputmanager\": {},\n\n\"inputmanager\": {}}", "w.json:3: inputmanager: the key stands here a second time"},
        {"{\"displaymanager\": {\n\"displays\": [\n{\"id\": 1},\n{\"id\": 2,\n\"resolution\": {\"width\":\n\"wide\"}}]}}",
         "w.json:6: displaymanager.displays[1].resolution.width: expected int, found string"},
        // A number's line is its own, also at the end of the line.
        {"{\"displaymanager\": {\"displays\": [{\"id\": 1,\n\"name\": 7\n}]}}",
         "w.json:2: displaymanager.displays[0].name: expected string, found int"},
        {"{\"displaymanager\": {\"displays\": [\n{\"name\": \"A\"}]}}",
         "w.json:2: displaymanager.displays[0]: \"id\" is missing; Display must have it"},
        {"{\"displaymanager\": {\"displays\": [{\"id\": null}]}}",
         "w.json:1: displaymanager.displays[0].id: expected int, found null"},
        {"{\"displaymanager\": {\"displays\": [{\"id\": 2147483648}]}}",
         "w.json:1: displaymanager.displays[0].id: outside the 32 bits of an int"},
        {"{\"displaymanager\": {\"displays\": [{\"id\": 18446744073709551616}]}}",
         "w.json:1: displaymanager.displays[0].id: expected int, found float"},
        {"{\"displaymanager\": {\"displays\": [{\"id\": 1, \"planes\": {\"alpha\": true}}]}}",
         "w.json:1: displaymanager.displays[0].planes.alpha: expected float, found bool"},
        {"{\"displaymanager\": {\"displayables\": [{\"id\": 1, \"size\": {\n\"depth\": 1}}]}}",
         "w.json:2: displaymanager.displayables[0].size.depth: unknown key; DisplayableSize has width, height"},
        {"{\"displaymanager\": {\"displays\": [{\"id\": 1},\n{\"id\": 1}]}}",
         "w.json:2: displaymanager.displays[1].id: 1 stands here a second time; first in line 1"},
        {"{\"displaymanager\": {\"displays\": [{\"id\": 1, \"name\": \"A\"},\n{\"id\": 2, \"name\": \"A\"}]}}",
         "w.json:2: displaymanager.displays[1].name: \"A\" stands here a second time; first in line 1"},
        {"{\"displaymanager\": {\"displays\": [{\"id\": 1, \"activelayers\": [{\"id\": 4}, {\"id\": 4}]}]}}",
         "w.json:1: displaymanager.displays[0].activelayers[1].id: 4 stands here a second time; first in line 1"},
        {"{\"displaymanager\": {\"displays\": [{\"id\": 1, \"activelayers\": [null]}]}}",
         "w.json:1: displaymanager.displays[0].activelayers[0]: expected object, found null"},
        {"{\"displaymanager\": {\"layerConfig\": [{\"layersForDisplay\": {\"display\": {\"id\": 1, \"name\": \"A\"}}},"
         "{\"layersForDisplay\": {\"display\": {\"id\": 2, \"name\": \"A\"}}}]}}",
         "w.json:1: displaymanager.layerConfig[1].layersForDisplay.display.name: \"A\" stands here a second time; first in line "
         "1"},
        {"{\"inputmanager\": {\"displays\": [\"A\",\n{\"name\": \"A\"}]}}",
         "w.json:2: inputmanager.displays[1]: \"A\" stands here a second time"},
        {"{\"inputmanager\": {\"displays\": [{\"name\": \"A\", \"shutter\": {\"status\": \"STATUS_BAD\"}}]}}",
         "w.json:1: inputmanager.displays[0].shutter.status: \"STATUS_BAD\" is none of STATUS_INIT, STATUS_OK, STATUS_ERROR"},
        {"{\"inputmanager\": {\"displays\": [{\"name\": \"A\", \"regions\": [{\"hmi\": \"H\", \"infoForAllLayers\": "
         "[{\"inputRegions\":"
         "[{\"regionID\": 3}]}]},\n{\"hmi\": \"I\", \"infoForAllLayers\": [{\"inputRegions\": [{}, {\"regionID\": 3}]}]}]}]}}",
         "w.json:2: inputmanager.displays[0].regions[1].infoForAllLayers[0].inputRegions[1].regionID: 3 stands here a second "
         "time; "
         "first in line 1"},
        {"{\"inputmanager\": {\"displays\": [{\"name\": \"A\", \"regions\": [{\"hmi\": \"H\", \"infoForAllLayers\": []},\n"
         "{\"hmi\": \"H\", \"infoForAllLayers\": []}]}]}}",
         "w.json:2: inputmanager.displays[0].regions[1]: this HMI and component stand here a second time"},
        {"{\"popupmanager\": {\"displays\": {\"A\": [{\"name\": \"P\"},\n{\"name\": \"P\"}]}}}",
         "w.json:2: popupmanager.displays.A[1].name: \"P\" stands here a second time; first in line 1"},
        {"{\"popupmanager\": {\"displays\": {\"A\": [{\"name\": \"\xff\"}]}}}",
         "w.json:1: popupmanager.displays.A[0].name: syntax error while parsing value - invalid string: ill-formed UTF-8 byte; "
         "last read: '\"\xff'"},
    };
    for (const auto& [text, complaint] : cases) EXPECT_EQ(complaintAbout(text), complaint) << text;
    EXPECT_EQ(complaintAbout(std::string(65, '[')).substr(0, 9), "w.json:1:");
    EXPECT_EQ(complaintAbout("{}"), "");
}

TEST(WorldFile, SamplesAndMadeWorldsReadAndAreWrittenAsTheyAre) {
    const std::filesystem::path samples = std::filesystem::path{HMX_SOURCE_DIR} / "share/worlds";
    for (const char* const name : {"cockpit.json", "one_screen.json"}) {
        World world = hmxsim::readWorld(Document::fromFile((samples / name).string()));
        EXPECT_FALSE(world.displays().empty()) << name;
        const std::string text = hmxsim::writeWorld(world, true);
        World again = hmxsim::readWorld(Document{"again", text});
        EXPECT_EQ(hmxsim::writeWorld(again, true), text) << name;
    }
    hmxsim::WorldSize size;
    ASSERT_EQ(hmxsim::readWorldSize("displays=5,regions=40,popups=300", size), "");
    World made = hmxsim::makeWorld(size, 7);
    World same = hmxsim::makeWorld(size, 7);
    World other = hmxsim::makeWorld(size, 8);
    EXPECT_EQ(hmxsim::writeWorld(made, false), hmxsim::writeWorld(same, false));
    EXPECT_NE(hmxsim::writeWorld(made, false), hmxsim::writeWorld(other, false));
    World read = hmxsim::readWorld(Document{"made", hmxsim::writeWorld(made, false)});
    EXPECT_EQ(read.displays().size(), 5U);
    EXPECT_EQ(read.popupDisplays[4].popups.size(), 60U);
    for (const char* const wrong : {"displays=0", "popups", "windows=3", "popups=-1", "popups=3x", "=3"}) {
        EXPECT_NE(hmxsim::readWorldSize(wrong, size), "") << wrong;
    }
}

}  // namespace
