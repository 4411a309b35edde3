#include "framework/data/AttributeArray.h"
#include "framework/data/Json.h"
#include "plugin/catalogue/Collection.h"

#include "ParseJson.h"

#include <gtest/gtest.h>

using namespace KVX;
using namespace Sorvel;
using Sorvel::Testing::parse;

namespace {

} // namespace

TEST(Title, LoadsByTheConversionRulesAndKeepsTheTrackOrder)
{
    Attributes reply = parse(R"({"id": 1234567890123, "name": "Live", "artist_name": "Ann", "upc": 5012345678900,
        "tracks": [
          {"id": "t1", "name": "Intro", "track_number": 3.9, "year": "2014", "duration": 215, "isrc": 12},
          {"id": "t2", "name": "Outro", "track_number": -2.7, "year": 2014.99, "duration": 61.5, "genre": "Rock"},
          "not an object"
        ]})");
    auto title = makeRef<Title>();
    ASSERT_TRUE(title->load(reply));
    EXPECT_EQ(title->id, "1234567890123"); // numbers arrive as their exact decimal text
    EXPECT_EQ(title->upc, "5012345678900");
    EXPECT_EQ(title->artistName, "Ann");
    ASSERT_EQ(title->tracks.count(), 3u);

    const Track& intro = *title->tracks.at(0);
    EXPECT_EQ(intro.name, "Intro");
    EXPECT_EQ(intro.trackNumber, 3);
    EXPECT_EQ(intro.year, 0); // a string where a number belongs
    EXPECT_DOUBLE_EQ(intro.duration, 215.0);
    EXPECT_EQ(intro.isrc, "12");
    EXPECT_TRUE(intro.comment.isEmpty()); // missing members read as empty
    const Track& outro = *title->tracks.at(1);
    EXPECT_EQ(outro.trackNumber, -2);
    EXPECT_EQ(outro.year, 2014);
    EXPECT_EQ(outro.genre, "Rock");
    EXPECT_TRUE(title->tracks.at(2)->name.isEmpty());

    // Loading again appends; it does not clear the list first.
    title->load(reply);
    EXPECT_EQ(title->tracks.count(), 6u);

    auto bare = makeRef<Title>();
    bare->load(parse(R"({"id": "x", "tracks": {"id": "not an array"}})"));
    EXPECT_EQ(bare->tracks.count(), 0u);

    auto clone = makeRef<Title>(*title); // a clone shares the track objects
    EXPECT_EQ(clone->tracks.count(), 6u);
    EXPECT_EQ(clone->tracks.at(0), title->tracks.at(0));
}

TEST(Title, ShowsAndCreatesByItsFields)
{
    auto title = makeRef<Title>();
    String shown;
    title->name = "   ";
    EXPECT_EQ(title->getDisplayTitle(shown), "[no title]");
    title->name = "\u00A0 Grüße \t";
    EXPECT_EQ(title->getDisplayTitle(shown), "Grüße");

    title->name = "Live";
    title->upc = "5012345678900";
    Attributes parameters;
    title->writeCreateParams(parameters);
    EXPECT_EQ(Json::toText(parameters), R"({"name":"Live","artist_name":"","upc":"5012345678900"})");
}

TEST(Track, CreationParametersComeInOrderWithTheYearOnlyWhenKnown)
{
    auto track = makeRef<Track>();
    track->name = "Intro";
    track->trackNumber = 4;
    track->duration = 12.5;
    track->genre = "Jazz";
    Attributes withoutYear;
    track->writeCreateParams(withoutYear);
    EXPECT_EQ(Json::toText(withoutYear), R"({"name":"Intro","isrc":"","genre":"Jazz","comment":"","arranger":"",)"
                                         R"("composer":"","songwriter":""})");
    track->year = 2014;
    Attributes withYear;
    track->writeCreateParams(withYear);
    EXPECT_EQ(Json::toText(withYear), R"({"name":"Intro","isrc":"","year":2014,"genre":"Jazz","comment":"",)"
                                      R"("arranger":"","composer":"","songwriter":""})");
}

TEST(Collection, OwnsItsTitlesInOrder)
{
    Collection collection;
    auto first = makeRef<Title>(), second = makeRef<Title>();
    collection.add(first);
    collection.add(second);
    EXPECT_EQ(first->referenceCount(), 2u);
    EXPECT_EQ(collection.at(1), second.get());
    EXPECT_TRUE(first->isKindOf("Title"));
    collection.removeAll();
    EXPECT_EQ(first->referenceCount(), 1u);
}
