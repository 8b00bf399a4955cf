#include "diag/configuration_file.h"

#include <cerrno>

#include "diag/global_logger.h"
#include "diag/logger.h"
#include "tests/support/tool_fixture.h"

namespace {

constexpr char kPath[] = "/opt/kx/configfile.txt";

class ConfigFileTest : public fake::ToolFixture {
 protected:
  ConfigFileTest() {
    Log();
    logger = nullptr;
  }

  /// Whether a configuration file with `contents` switches logging on.
  bool Activates(const std::string& contents) {
    world.AddFile(kPath, contents);
    return Parse();
  }

  bool Parse() {
    Logger* found = nullptr;
    EXPECT_EQ(Utils::ParseConfigFile(kPath, found, "/nowhere/"), 0);
    EXPECT_TRUE(found == nullptr || found == Logger::GetLogger(""));
    return found != nullptr;
  }
};

TEST_F(ConfigFileTest, OneLineSwitchesLoggingOn) {
  EXPECT_TRUE(Activates("Logging=true"));
  EXPECT_TRUE(Activates("Logging=true\n"));
  EXPECT_TRUE(Activates("Logging=true\nLogging=false\n"));
  EXPECT_TRUE(Activates("Logging=false\nLogging=true\nLogging=true"));
  EXPECT_TRUE(Activates("\n\n=true\nLogging\nother=thing\nLogging=true"));
}

TEST_F(ConfigFileTest, OtherLinesAreIgnored) {
  for (const std::string line : {"",
                                 "Logging",
                                 "=",
                                 "=true",
                                 "true",
                                 "Logging=",
                                 "Logging=false",
                                 "Logging=True",
                                 "Logging=TRUE",
                                 "logging=true",
                                 "LOGGING=true",
                                 "Logging = true",
                                 "Logging= true",
                                 "Logging =true",
                                 " Logging=true",
                                 "Logging=true ",
                                 "Logging=true\t",
                                 "Logging=true\r",
                                 "\tLogging=true",
                                 "Logging==true",
                                 "Logging=true=",
                                 "=Logging=true",
                                 "Logging=truetrue",
                                 "Logging=tru",
                                 "Loggin=true",
                                 "\xEF\xBB\xBFLogging=true",
                                 "Logging:true"}) {
    SCOPED_TRACE(line);
    EXPECT_FALSE(Activates(line));
    EXPECT_FALSE(Activates(line + "\n"));
    EXPECT_TRUE(Activates(line + "\nLogging=true"));
  }
}

TEST_F(ConfigFileTest, DosLineEnds) {
  EXPECT_FALSE(Activates("Logging=true\r\n"));
  EXPECT_TRUE(Activates("other=1\r\nLogging=true"));
  EXPECT_FALSE(Activates("Logging=true\rLogging=true\r"));
}

TEST_F(ConfigFileTest, NulCharacters) {
  EXPECT_FALSE(Activates(std::string("Logging=true\0", 13)));
  EXPECT_FALSE(Activates(std::string("\0Logging=true", 13)));
  EXPECT_FALSE(Activates(std::string("Logging\0=true", 13)));
  EXPECT_TRUE(Activates(std::string("\0\0\n\0", 4) + "x\nLogging=true\n" + std::string(3, '\0')));
}

// The file is read in chunks, and long lines are truncated.
TEST_F(ConfigFileTest, LinesOfAnyLengthAndPosition) {
  for (const std::size_t size :
       {11U, 12U, 13U, 14U, 4083U, 4084U, 4090U, 4095U, 4096U, 4097U, 8191U, 100000U, 10000000U}) {
    SCOPED_TRACE(size);
    const std::string longLine(size, 'x');
    EXPECT_FALSE(Activates(longLine));
    EXPECT_TRUE(Activates(longLine + "\nLogging=true"));
    EXPECT_FALSE(Activates(longLine + "Logging=true"));
    EXPECT_FALSE(Activates("Logging=true" + longLine));
    EXPECT_TRUE(Activates("Logging=true\n" + longLine));
    EXPECT_TRUE(Activates(std::string(size, '\n') + "Logging=true"));
  }
}

TEST_F(ConfigFileTest, FilesThatCannotBeRead) {
  EXPECT_FALSE(Parse());
  world.AddFile(kPath, "Logging=true\n");
  world.files[kPath].openError = EACCES;
  EXPECT_FALSE(Parse());
  world.files[kPath] = {};
  world.AddDirectory(kPath);
  EXPECT_FALSE(Parse());
}

TEST_F(ConfigFileTest, ReadErrorEndsTheFile) {
  world.AddFile(kPath, "other\nLogging=true\nrest");
  world.files[kPath].readError = EIO;
  world.files[kPath].readErrorAt = 10;
  EXPECT_FALSE(Parse());
  world.files[kPath].readErrorAt = 19;
  EXPECT_TRUE(Parse());
}

TEST_F(ConfigFileTest, LoggerThatIsOnStaysOn) {
  world.AddFile(kPath, "Logging=false\n");
  Logger* found = Logger::GetLogger("");
  EXPECT_EQ(Utils::ParseConfigFile(kPath, found, ""), 0);
  EXPECT_EQ(found, Logger::GetLogger(""));
}

}  // namespace
