#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>

#include "Platform/Files/FileSystem.h"
#include "Platform/Files/FileTree.h"
#include "Platform/Files/TreeSurvey.h"
#include "support/Environment.h"

namespace qbdkr::test {
namespace {

namespace fs = std::filesystem;

class TreeSurveyTest : public testing::Test {
 protected:
  TemporaryDirectory directory;
  fs::path tree = directory.path() / "tree";
};

TEST_F(TreeSurveyTest, CountsFilesAndBytes) {
  writeFile(tree / "a", "12345");
  writeFile(tree / "sub/b", "123");
  fs::create_symlink("/nowhere", tree / "link");
  const auto survey = surveyOfTree(tree);
  EXPECT_EQ(survey.bytes, 8U);
  EXPECT_EQ(survey.entries, 5U);
  EXPECT_TRUE(survey.isComplete);
  EXPECT_FALSE(survey.obstacle);
}

TEST_F(TreeSurveyTest, FollowsALinkAtThePathAlone) {
  writeFile(tree / "a", "12345");
  fs::create_symlink(tree, directory.path() / "link");
  EXPECT_EQ(surveyOfTree(directory.path() / "link").bytes, 5U);
}

TEST_F(TreeSurveyTest, NamesWhatTheCopyRefuses) {
  writeFile(tree / "sub/a", "x");
  ASSERT_EQ(::mkfifo((tree / "sub/pipe").c_str(), 0600), 0);
  const auto survey = surveyOfTree(tree);
  ASSERT_TRUE(survey.obstacle);
  EXPECT_EQ(survey.obstacle->path, tree / "sub/pipe");
  const auto refused = copyItem(tree, directory.path() / "copy");
  ASSERT_TRUE(refused);
  EXPECT_EQ(refused->path, survey.obstacle->path);
}

TEST_F(TreeSurveyTest, NamesADirectoryThatIsTooDeepForTheCopy) {
  fs::path deep = tree;
  for (int level = 0; level < 255; ++level) deep /= "d";
  fs::create_directories(deep);
  EXPECT_FALSE(surveyOfTree(tree).obstacle);
  fs::create_directories(deep / "d");
  const auto survey = surveyOfTree(tree);
  ASSERT_TRUE(survey.obstacle);
  EXPECT_EQ(survey.obstacle->path, deep / "d");
}

TEST_F(TreeSurveyTest, StopsAtItsBounds) {
  for (int i = 0; i < 10; ++i) writeFile(tree / std::to_string(i), "x");
  EXPECT_FALSE(surveyOfTree(tree, {.entries = 5}).isComplete);
  EXPECT_FALSE(surveyOfTree(tree, {.time = std::chrono::milliseconds(0)}).isComplete);
  EXPECT_TRUE(surveyOfTree(tree, {.entries = 11}).isComplete);
}

TEST_F(TreeSurveyTest, NamesAPathThatDoesNotExist) {
  const auto survey = surveyOfTree(tree);
  ASSERT_TRUE(survey.obstacle);
  EXPECT_EQ(survey.obstacle->path, tree);
}

TEST(FileSystemTest, KnowsThatTheKernelsOwnHoldNoFiles) {
  const auto kernels = fileSystemOf("/proc");
  ASSERT_TRUE(kernels);
  EXPECT_EQ(kernels->type, "proc");
  EXPECT_FALSE(kernels->holdsFiles);
}

TEST(FileSystemTest, TellsTheRoomOfADisk) {
  const TemporaryDirectory directory;
  const auto disk = fileSystemOf(directory.path());
  ASSERT_TRUE(disk);
  EXPECT_TRUE(disk->holdsFiles);
  EXPECT_TRUE(disk->isWritable);
  EXPECT_GT(disk->freeSize, 0U);
  EXPECT_FALSE(fileSystemOf(directory.path() / "missing"));
}

}  // namespace
}  // namespace qbdkr::test
