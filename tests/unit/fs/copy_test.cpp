// SPDX-License-Identifier: BSD-3-Clause
#include "fs_fixture.h"

#include <csignal>
#include <sys/resource.h>
#include <sys/xattr.h>

namespace {

using namespace FsTest;

class CopyTest : public FsTestBase
{
protected:
    std::string Text(const char* name) const { return (Root() / name).native(); }
    fs::path At(const char* name) const { return Root() / name; }
};

using CopyingFile = CopyTest;

TEST_F(CopyingFile, CopiesContentPermissionsAndAttributesAndCreatesParentDirectories)
{
    MakeFile("source", std::string("a\0b", 3));
    fs::permissions(At("source"), static_cast<fs::perms>(0751));
    const bool hasAttributes = setxattr(Text("source").c_str(), "user.a", "value", 5, 0) == 0 &&
                               setxattr(Text("source").c_str(), "user.empty", "", 0, 0) == 0;
    CopyFile(At("source"), At("a/b/copy"));
    EXPECT_EQ(ContentOf(At("a/b/copy")), std::string("a\0b", 3));
    EXPECT_EQ(fs::status(At("a/b/copy")).permissions(), static_cast<fs::perms>(0751));
    if (hasAttributes) {
        EXPECT_EQ(GetExtendedAttributes(At("a/b/copy")), (ExtendedAttributes{{"user.a", "value"}}));
    }
}

TEST_F(CopyingFile, FollowsALink)
{
    MakeFile("source");
    fs::create_symlink("source", At("link"));
    CopyFile(At("link"), At("copy"));
    EXPECT_FALSE(fs::is_symlink(At("copy")));
    EXPECT_EQ(ContentOf(At("copy")), "content");
}

TEST_F(CopyingFile, AnythingButARegularFileIsRefusedWithoutALogLine)
{
    fs::create_directory(At("directory"));
    EXPECT_EQ(LogOf([&] {
                  ExpectFailure([&] { CopyFile(At("directory"), At("copy")); },
                                "Attempt to copy file, but " + Text("directory") +
                                    " is not regular file");
                  ExpectFailure([&] { CopyFile(At("missing"), At("copy")); },
                                "Attempt to copy file, but " + Text("missing") +
                                    " is not regular file");
              }),
              "");
    EXPECT_FALSE(fs::exists(At("copy")));
}

TEST_F(CopyingFile, OntoAnExistingFileFailsAndRemovesThatFile)
{
    MakeFile("source");
    MakeFile("destination", "old");
    const std::string log = LogOf([&] {
        ExpectFailure([&] { CopyFile(At("source"), At("destination")); },
                      "Coulnd't copy file " + Text("source") + " to " + Text("destination"));
    });
    EXPECT_EQ(log.rfind("[W] filesystem error: cannot copy file: File exists", 0), 0U) << log;
    EXPECT_EQ(Lines(log), 1);
    EXPECT_FALSE(fs::exists(At("destination")));
    EXPECT_TRUE(fs::exists(At("source")));
}

TEST_F(CopyingFile, OntoItselfRemovesTheFile)
{
    MakeFile("source");
    EXPECT_THROW(LogOf([&] { CopyFile(At("source"), At("source")); }), Error);
    EXPECT_FALSE(fs::exists(At("source")));
}

TEST_F(CopyingFile, AFailedCleanUpIsLoggedWithItsCause)
{
    MakeFile("source");
    fs::create_directories(At("closed"));
    MakeFile("closed/q\"b\\s", "old");
    fs::permissions(At("closed"), fs::perms::owner_read | fs::perms::owner_exec);
    const AsNobody nobody(Root());
    const fs::path destination = At("closed") / "q\"b\\s";
    const std::string log = LogOf([&] {
        ExpectFailure([&] { CopyFile(At("source"), destination); },
                      "Coulnd't copy file " + Text("source") + " to " + destination.native());
    });
    EXPECT_EQ(Lines(log), 3) << log;
    EXPECT_NE(log.find("\n[W] Couldn't cleanup bad copied file: \"" + Text("closed") +
                       "/q\\\"b\\\\s\"\n[W] filesystem error: "),
              std::string::npos)
        << log;
    fs::permissions(At("closed"), fs::perms::owner_all);
}

TEST_F(CopyingFile, OnAFullFilesystemLeavesNothing)
{
    MakeFile("source", std::string(100000, 'x'));
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit before{};
    getrlimit(RLIMIT_FSIZE, &before);
    rlimit limited = before;
    limited.rlim_cur = 4096;
    // The captured log is a file too, but a short one.
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limited), 0);
    std::string log;
    log = LogOf([&] {
        ExpectFailure([&] { CopyFile(At("source"), At("copy")); },
                      "Coulnd't copy file " + Text("source") + " to " + Text("copy"));
    });
    setrlimit(RLIMIT_FSIZE, &before);
    EXPECT_EQ(log.rfind("[W] filesystem error: ", 0), 0U) << log;
    EXPECT_FALSE(fs::exists(At("copy")));
}

TEST_F(CopyingFile, AnUnreadableSourceLeavesNothing)
{
    MakeFile("source");
    fs::permissions(At("source"), fs::perms::none);
    const AsNobody nobody(Root());
    const std::string log = LogOf([&] {
        ExpectFailure([&] { CopyFile(At("source"), At("copy")); },
                      "Coulnd't copy file " + Text("source") + " to " + Text("copy"));
    });
    EXPECT_EQ(Lines(log), 1) << log;
    EXPECT_FALSE(fs::exists(At("copy")));
}

using CopyingSymlink = CopyTest;

TEST_F(CopyingSymlink, WithATargetInItsDirectoryIsCopiedAsALink)
{
    for (const char* text : {"lib.so.1", "name/other"}) {
        fs::create_symlink(text, At("link"));
        EXPECT_EQ(LogOf([&] { CopySymlink(At("link"), At("new/copy")); }), "");
        EXPECT_EQ(fs::read_symlink(At("new/copy")), text);
        fs::remove(At("link"));
        fs::remove_all(At("new"));
    }
}

TEST_F(CopyingSymlink, WithATargetElsewhereBecomesAFile)
{
    MakeFile("target");
    fs::create_directory(At("d"));
    for (const fs::path& text : {fs::path("../target"), At("target"), fs::path("./../target")}) {
        fs::create_symlink(text, At("d/link"));
        EXPECT_EQ(LogOf([&] { CopySymlink(At("d/link"), At("copy")); }),
                  "[W] Symlink target is not in the same directory: \"" + Text("d/link") +
                      "\" -> \"" + Text("copy") +
                      "\"\n[I] Trying to copy content of the symlink target\n");
        EXPECT_FALSE(fs::is_symlink(At("copy")));
        EXPECT_EQ(ContentOf(At("copy")), "content");
        fs::remove(At("d/link"));
        fs::remove(At("copy"));
    }
}

TEST_F(CopyingSymlink, FallsBackToTheContentIfTheLinkCannotBeCreated)
{
    MakeFile("target");
    fs::create_symlink("target", At("link"));
    MakeFile("destination", "old");
    const std::string log = LogOf([&] {
        ExpectFailure([&] { CopySymlink(At("link"), At("destination")); },
                      "Coulnd't copy file " + Text("link") + " to " + Text("destination"));
    });
    EXPECT_EQ(log.rfind("[W] Coulnd't copy symlink \"" + Text("link") + "\" to \"" +
                            Text("destination") +
                            "\"\n[I] Trying to copy content of the symlink target\n[W] ",
                        0),
              0U)
        << log;
    EXPECT_FALSE(fs::exists(At("destination")));
}

TEST_F(CopyingSymlink, AnythingButALinkIsRefused)
{
    MakeFile("file");
    ExpectFailure([&] { CopySymlink(At("file"), At("copy")); },
                  "Attempt to copy symlink, but " + Text("file") + " is not symlink");
}

TEST_F(CopyingSymlink, WithAMissingTargetElsewhereIsRefused)
{
    fs::create_symlink("../nowhere", At("link"));
    LogOf([&] {
        ExpectFailure([&] { CopySymlink(At("link"), At("copy")); },
                      "Attempt to copy file, but " + Text("link") + " is not regular file");
    });
}

using Copying = CopyTest;

TEST_F(Copying, AMissingSourceOrADanglingLinkIsReportedAsMissing)
{
    fs::create_symlink("nowhere", At("dangling"));
    for (const char* name : {"missing", "dangling"}) {
        ExpectFailure([&] { Copy(At(name), At("copy")); }, "Couldn't copy " + Text(name) + " to " +
                                                               Text("copy") + " (path " +
                                                               Text(name) + " doesn't exists)");
    }
}

TEST_F(Copying, NeverOverwrites)
{
    MakeFile("source");
    MakeFile("destination", "old");
    ExpectFailure([&] { Copy(At("source"), At("destination")); },
                  "Couldn't copy " + Text("source") + " to " + Text("destination") +
                      " (path already exists)");
    EXPECT_EQ(ContentOf(At("destination")), "old");
}

TEST_F(Copying, AnUnsupportedEntryIsNamed)
{
    MakeSocket("socket");
    ASSERT_EQ(mkfifo(Text("fifo").c_str(), 0600), 0);
    for (const char* name : {"socket", "fifo"}) {
        ExpectFailure([&] { Copy(At(name), At("copy")); },
                      "Couldn't copy unsupported filesystem entry " + Text(name));
    }
    ExpectFailure([&] { Copy("/dev/null", At("copy")); },
                  "Couldn't copy unsupported filesystem entry /dev/null");
}

TEST_F(Copying, ALinkToADirectoryIsCopiedAsALink)
{
    fs::create_directory(At("directory"));
    fs::create_directory_symlink("directory", At("link"));
    Copy(At("link"), At("copy"));
    EXPECT_EQ(fs::read_symlink(At("copy")), "directory");
}

TEST_F(Copying, ALinkLoopIsAnError)
{
    fs::create_symlink("loop", At("loop"));
    const std::string log = LogOf([&] {
        ExpectFailure([&] { Copy(At("loop"), At("copy")); }, "Couldn't copy " + Text("loop") +
                                                                 " to " + Text("copy") + " (path " +
                                                                 Text("loop") + " doesn't exists)");
    });
    EXPECT_EQ(Lines(log), 1) << log;
}

using CopyingDirectory = CopyTest;

TEST_F(CopyingDirectory, CopiesTheWholeTree)
{
    fs::create_directories(At("tree/empty"));
    fs::create_directories(At("tree/a/b"));
    const std::string odd = "q\"b\\s l\nf \xff\xfe";
    MakeFile("tree/a/b/" + odd, "odd");
    MakeFile("tree/a/file");
    fs::create_hard_link(At("tree/a/file"), At("tree/a/hard"));
    fs::create_symlink("file", At("tree/a/link"));
    EXPECT_EQ(LogOf([&] { Copy(At("tree"), At("x/copy")); }), "");
    EXPECT_TRUE(fs::is_empty(At("x/copy/empty")));
    EXPECT_EQ(ContentOf(At("x/copy/a/b") / odd), "odd");
    EXPECT_EQ(ContentOf(At("x/copy/a/hard")), "content");
    EXPECT_EQ(fs::read_symlink(At("x/copy/a/link")), "file");
}

TEST_F(CopyingDirectory, CopiesADeepTree)
{
    fs::path path = At("tree");
    for (int depth = 0; depth < 200; ++depth) {
        path /= "d";
    }
    fs::create_directories(path);
    CopyDirectory(At("tree"), At("copy"));
    EXPECT_TRUE(fs::is_directory(At("copy") / path.lexically_relative(At("tree"))));
}

TEST_F(CopyingDirectory, AnythingButADirectoryIsRefused)
{
    MakeFile("file");
    ExpectFailure([&] { CopyDirectory(At("file"), At("copy")); },
                  "Attempt to copy directory, but " + Text("file") + " is not directory");
    EXPECT_FALSE(fs::exists(At("copy")));
}

TEST_F(CopyingDirectory, AFailureDeepInTheTreeRemovesTheWholeCopyAndLogsNothing)
{
    fs::create_directories(At("tree/a/b"));
    MakeFile("tree/file");
    ASSERT_EQ(mkfifo(Text("tree/a/b/fifo").c_str(), 0600), 0);
    EXPECT_EQ(LogOf([&] {
                  ExpectFailure([&] { CopyDirectory(At("tree"), At("copy")); },
                                "Coulnd't copy directory " + Text("tree") + " to " + Text("copy"));
              }),
              "");
    EXPECT_FALSE(fs::exists(At("copy")));
    EXPECT_TRUE(fs::exists(At("tree/file")));
}

TEST_F(CopyingDirectory, ANameConflictRemovesTheWholeDestination)
{
    fs::create_directories(At("tree"));
    MakeFile("tree/name");
    fs::create_directories(At("destination"));
    MakeFile("destination/name", "old");
    MakeFile("destination/other", "old");
    EXPECT_EQ(LogOf([&] {
                  ExpectFailure([&] { CopyDirectory(At("tree"), At("destination")); },
                                "Coulnd't copy directory " + Text("tree") + " to " +
                                    Text("destination"));
              }),
              "");
    EXPECT_FALSE(fs::exists(At("destination")));
}

TEST_F(CopyingDirectory, ADestinationWithoutANameConflictIsExtended)
{
    fs::create_directories(At("tree"));
    MakeFile("tree/name");
    fs::create_directories(At("destination"));
    MakeFile("destination/other", "old");
    CopyDirectory(At("tree"), At("destination"));
    EXPECT_EQ(ContentOf(At("destination/other")), "old");
    EXPECT_EQ(ContentOf(At("destination/name")), "content");
}

TEST_F(CopyingDirectory, AFailedCleanUpIsLogged)
{
    fs::create_directories(At("tree"));
    MakeFile("tree/file");
    fs::create_directories(At("closed/copy"));
    fs::permissions(At("closed/copy"), fs::perms::owner_read | fs::perms::owner_exec);
    fs::permissions(At("closed"), fs::perms::owner_read | fs::perms::owner_exec);
    const AsNobody nobody(Root());
    const std::string log = LogOf([&] {
        ExpectFailure([&] { CopyDirectory(At("tree"), At("closed/copy")); },
                      "Coulnd't copy directory " + Text("tree") + " to " + Text("closed/copy"));
    });
    EXPECT_NE(
        log.find("[W] Couldn't cleanup bad copied directory: \"" + Text("closed/copy") + "\"\n"),
        std::string::npos)
        << log;
    fs::permissions(At("closed"), fs::perms::owner_all);
    fs::permissions(At("closed/copy"), fs::perms::owner_all);
}

TEST_F(CopyingDirectory, IntoItselfIsRefusedBeforeAnythingIsTouched)
{
    fs::create_directories(At("tree/a"));
    MakeFile("tree/file");
    fs::create_directory_symlink("tree", At("alias"));
    for (const char* destination : {"tree/copy", "tree/a", "tree/x/y", "alias/copy"}) {
        EXPECT_EQ(LogOf([&] {
                      ExpectFailure([&] { CopyDirectory(At("tree"), At(destination)); },
                                    "Coulnd't copy directory " + Text("tree") + " to " +
                                        Text(destination));
                  }),
                  "");
    }
    EXPECT_EQ(ReadDirectory(At("tree"), Recursive).size(), 2U);
}

TEST_F(CopyingDirectory, OntoItselfRemovesTheDirectory)
{
    fs::create_directory(At("source"));
    MakeFile("source/file");
    ExpectFailure([&] { CopyDirectory(At("source"), At("source")); },
                  "Coulnd't copy directory " + Text("source") + " to " + Text("source"));
    EXPECT_FALSE(fs::exists(At("source")));
}

TEST_F(CopyingDirectory, ToASiblingWithALongerNameIsNotIntoItself)
{
    fs::create_directories(At("tree"));
    MakeFile("tree/file");
    CopyDirectory(At("tree"), At("tree-copy"));
    EXPECT_TRUE(fs::exists(At("tree-copy/file")));
}

TEST_F(CopyingDirectory, ADanglingLinkInTheTreeIsAFailure)
{
    fs::create_directories(At("tree"));
    fs::create_symlink("nowhere", At("tree/dangling"));
    const std::string log = LogOf([&] {
        ExpectFailure([&] { CopyDirectory(At("tree"), At("copy")); },
                      "Coulnd't copy directory " + Text("tree") + " to " + Text("copy"));
    });
    EXPECT_EQ(log.rfind("[E] filesystem error: ", 0), 0U) << log;
    EXPECT_EQ(Lines(log), 1);
    EXPECT_FALSE(fs::exists(At("copy")));
}

TEST_F(CopyingDirectory, ALinkLoopInTheDestinationIsAnError)
{
    fs::create_directories(At("tree"));
    fs::create_symlink("loop", At("loop"));
    LogOf([&] {
        ExpectFailure([&] { CopyDirectory(At("tree"), At("loop/copy")); },
                      "Coulnd't copy directory " + Text("tree") + " to " + Text("loop/copy"));
    });
}

} // namespace
