"""Checks the build of bundles: bundles.py CMAKE MODULE DIRECTORY mistakes|GENERATOR

"mistakes" makes each mistake in a project of its own, and compares the cause that CMake ends with. A generator builds a
host with a helper agent, changes each input in turn, and compares the bundle with the inputs after each build.
"""

import os
import pathlib
import plistlib
import shutil
import subprocess
import sys

CMAKE, MODULE = sys.argv[1:3]
WORK = pathlib.Path(sys.argv[3])


def cmake(*arguments):
    done = subprocess.run([CMAKE, *map(str, arguments)], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    return done.returncode, done.stdout


def fail(text):
    sys.exit(f"FAILED: {text}")


def write(path, text):
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text(text)


def plist(**changes):
    """The Info.plist of the host, with some keys changed; None leaves one out."""
    values = {
        "CFBundleIdentifier": "com.Acme.PhotoTool", "CFBundleExecutable": "PhotoTool", "CFBundleVersion": "1.0",
        "PID": "1001", "Helper Bundle indentifiter": "com.Acme.Helper", "Helepr App name": "AcmeHelper",
        "Helper loaction path": "~/.local/share/Acme",
    }
    values.update({key.replace("_", " "): value for key, value in changes.items()})
    return plistlib.dumps({key: value for key, value in values.items() if value is not None}).decode()


HELPER_PLIST = plist(CFBundleIdentifier="com.Acme.Helper", CFBundleExecutable="AcmeHelper", PID=None,
                     Helper_Bundle_indentifiter=None, Helepr_App_name=None, Helper_loaction_path=None)
HELPER = "qbdkr_add_bundle(Helper NAME AcmeHelper DIRECTORY bundles INFO Helper.plist LIBRARIES Core)\n"
HOST = "qbdkr_add_bundle(Host NAME PhotoTool DIRECTORY bundles INFO Host.plist LIBRARIES Core HELPER Helper)\n"

HEAD = f"""cmake_minimum_required(VERSION 3.25)
project(Mistakes LANGUAGES NONE)
include({MODULE})
add_executable(Helper helper.c)
add_executable(Host host.c)
add_library(Core SHARED core.c)
add_library(Archive STATIC archive.c)
add_custom_target(Tool)
"""

# The end of a cause names the remedy. "ROOT" is the project's folder.
ARGUMENT_MISTAKES = [
    (HELPER + HOST.replace("Host NAME", "Hots NAME"),
     "(Hots): TARGET is no target: call add_executable(Hots ...) before"),
    (HELPER.replace("Helper NAME", "NAME"), "(NAME): TARGET is no target: call add_executable(NAME ...) before"),
    (HELPER + HOST.replace("Host NAME", "Core NAME"),
     "(Core): TARGET is no executable that this project builds: name a target of add_executable()"),
    (HELPER + HOST.replace("Host NAME", "Tool NAME"),
     "(Tool): TARGET is no executable that this project builds: name a target of add_executable()"),
    ("add_executable(Other ALIAS Host)\n" + HELPER + HOST.replace("Host NAME", "Other NAME"),
     "(Other): TARGET is no executable that this project builds: name a target of add_executable()"),
    ("add_subdirectory(sub)\n" + HELPER.replace("Helper NAME", "Below NAME"),
     "(Below): TARGET was made in another directory: call qbdkr_add_bundle() beside its add_executable()"),
    (HELPER + HELPER,
     "(Helper): TARGET makes ROOT/build/bundles/AcmeHelper.app already: call it once for each target"),
    (HELPER + HELPER.replace("Helper NAME", "Host NAME").replace("bundles", "./bundles/"),
     "(Host): another target makes ROOT/build/bundles/AcmeHelper.app: give one of them another NAME or DIRECTORY"),
    (HELPER.replace("NAME", "NAEM"), "(Helper): the argument NAEM is unknown: did you mean NAME?"),
    (HELPER.replace("INFO", "Info"), "(Helper): the argument Info is unknown: did you mean INFO?"),
    (HELPER.replace("LIBRARIES", "LIBRARY"), "(Helper): the argument LIBRARY is unknown: did you mean LIBRARIES?"),
    (HELPER.replace("NAME", "quite something NAME"), "(Helper): the argument quite is unknown: the arguments are NAME, "
     "DIRECTORY, INFO, LIBRARIES, RESOURCES, HELPER, SELF_CONTAINED, UNCHECKED"),
    (HELPER + HOST.replace("HELPER Helper", "HELPR Helper"), "(Host): LIBRARIES names HELPR, which is no target: name "
     "the target of a shared library, or did you mean the argument HELPER?"),
    (HELPER + HOST.replace("HELPER", "RESOURCES Host.plist HELPR"), "(Host): RESOURCES names HELPR, which does not "
     "exist: correct its path, which is relative to ROOT, or did you mean the argument HELPER?"),
    (HELPER.replace("NAME AcmeHelper", ""),
     "(Helper): NAME is missing: every bundle needs NAME, DIRECTORY, INFO and LIBRARIES"),
    (HELPER.replace("DIRECTORY bundles", ""),
     "(Helper): DIRECTORY is missing: every bundle needs NAME, DIRECTORY, INFO and LIBRARIES"),
    (HELPER.replace("INFO Helper.plist", ""),
     "(Helper): INFO is missing: every bundle needs NAME, DIRECTORY, INFO and LIBRARIES"),
    (HELPER.replace("LIBRARIES Core", ""),
     "(Helper): LIBRARIES is missing: every bundle needs NAME, DIRECTORY, INFO and LIBRARIES"),
    (HELPER.replace("Helper.plist", "${unset}"),
     "(Helper): INFO has no value: give it one, or check the variable that should hold it"),
    (HELPER.replace("Core", "${unset}"),
     "(Helper): LIBRARIES has no value: give it one, or check the variable that should hold it"),
    (HELPER.replace("Core", "Core RESOURCES"),
     "(Helper): RESOURCES has no value: give it one, or check the variable that should hold it"),
    (HELPER + HOST.replace("HELPER Helper", "HELPER"),
     "(Host): HELPER has no value: give it one, or check the variable that should hold it"),
    (HELPER.replace("NAME AcmeHelper", "NAME AcmeHelper.app"),
     "(Helper): NAME AcmeHelper.app is no name of a bundle: leave out the directory and \".app\""),
    (HELPER.replace("Helper.plist", "Missing.plist"),
     "(Helper): INFO names ROOT/Missing.plist, which is no file: correct its path"),
    (HELPER.replace("Helper.plist", "sub"), "(Helper): INFO names ROOT/sub, which is no file: correct its path"),
    (HELPER.replace("Core", "Crone"),
     "(Helper): LIBRARIES names Crone, which is no target: name the target of a shared library"),
    (HELPER.replace("Core", "Archive"),
     "(Helper): LIBRARIES names Archive, which is no shared library: leave it out"),
    (HELPER + HOST.replace("HELPER", "RESOURCES missing.txt HELPER"), "(Host): RESOURCES names missing.txt, which does "
     "not exist: correct its path, which is relative to ROOT"),
    (HELPER + HOST.replace("HELPER", "RESOURCES Host.plist sub/Host.plist HELPER"), "(Host): two resources have the "
     "name Host.plist: rename one, or leave it out (HELPER is a resource as well)"),
    (HELPER + HOST.replace("HELPER", "RESOURCES sub/AcmeHelper.app/ HELPER"), "(Host): two resources have the name "
     "AcmeHelper.app: rename one, or leave it out (HELPER is a resource as well)"),
    (HOST.replace("Helper)", "Hepler)"), "(Host): HELPER names Hepler, which is no target: call "
     "add_executable(Hepler ...) and qbdkr_add_bundle(Hepler ...) before"),
    (HOST + HELPER, "(Host): HELPER names Helper, which is no bundle yet: call qbdkr_add_bundle(Helper ...) before"),
    (HELPER + HOST.replace("HELPER", "SELF_CONTAINED HELPER"), "(Host): HELPER names Helper, which is not "
     "SELF_CONTAINED: write that into its call as well"),
    (HELPER.replace("LIBRARIES", "SELFCONTAINED LIBRARIES"),
     "(Helper): the argument SELFCONTAINED is unknown: did you mean SELF_CONTAINED?"),
    (HOST.replace("Helper)", "Host)"),
     "(Host): HELPER names Host, which is no bundle yet: call qbdkr_add_bundle(Host ...) before"),
]

UNREAD = "is there and is not read, write"
INFO = "INFO ROOT/Host.plist"
KEY_MISTAKES = [
    ({"CFBundleIdentifier": None}, f"{INFO} has no \"CFBundleIdentifier\", which every bundle needs: add it"),
    ({"CFBundleVersion": None}, f"{INFO} has no \"CFBundleVersion\", which every bundle needs: add it"),
    ({"CFBundleExecutable": None}, f"{INFO} has no \"CFBundleExecutable\", which every bundle needs: add it"),
    ({"CFBundleIdentifier": None, "CFBundleIdentifer": "com.Acme.PhotoTool"},
     f"{INFO} has no \"CFBundleIdentifier\", which every bundle needs: \"CFBundleIdentifer\" {UNREAD} "
     "\"CFBundleIdentifier\" instead"),
    ({"PID": None}, f"{INFO} has no \"PID\", which a bundle with HELPER needs: add it"),
    ({"PID": None, "pid": "1001"}, f"{INFO} has no \"PID\", which a bundle with HELPER needs: \"pid\" {UNREAD} "
     "\"PID\" instead"),
    ({"Helper Bundle indentifiter": None, "Helper Bundle identifier": "com.Acme.Helper"},
     f"{INFO} has no \"Helper Bundle indentifiter\", which a bundle with HELPER needs: \"Helper Bundle identifier\" "
     f"{UNREAD} \"Helper Bundle indentifiter\" instead"),
    ({"Helepr App name": None}, f"{INFO} has no \"Helepr App name\" or \"Helper App name\", which a bundle with HELPER "
     "needs: add it"),
    ({"Helepr App name": None, "HelperAppName": "AcmeHelper"}, f"{INFO} has no \"Helepr App name\" or \"Helper App "
     f"name\", which a bundle with HELPER needs: \"HelperAppName\" {UNREAD} \"Helepr App name\" instead"),
    ({"Helper loaction path": None, "Helper location": "~/Acme"}, f"{INFO} has no \"Helper loaction path\" or \"Helper "
     f"location path\", which a bundle with HELPER needs: \"Helper location\" {UNREAD} \"Helper loaction path\" "
     "instead"),
    ({"Helper loaction path": "", "Helper location path": ""}, "\"Helper location path\" in ROOT/Host.plist is "
     "empty: give it a value, or check the variable that a template takes it from"),
    ({"PID": True}, "\"PID\" in ROOT/Host.plist is a <true>: make it a <string>"),
    ({"PID": ["1001"]}, "\"PID\" in ROOT/Host.plist is a <array>: make it a <string>"),
    ({"CFBundleVersion": "@UNSET@"}, "\"CFBundleVersion\" in ROOT/Host.plist is empty: give it a value, or check "
     "the variable that a template takes it from"),
    ({"CFBundleExecutable": "Host"}, "CFBundleExecutable in ROOT/Host.plist is \"Host\", but the executable is "
     "PhotoTool: write that name"),
    ({"CFBundleExecutable": " PhotoTool"}, "CFBundleExecutable in ROOT/Host.plist is \" PhotoTool\", but the "
     "executable is PhotoTool: write that name"),
    ({"Helepr App name": "Helper"}, "the helper agent's name in ROOT/Host.plist is \"Helper\", but HELPER Helper "
     "makes AcmeHelper.app: make the two the same"),
    ({"Helper App name": "AcmeHelper", "Helepr App name": "Helper"}, "the helper agent's name in ROOT/Host.plist "
     "is \"Helper\", but HELPER Helper makes AcmeHelper.app: make the two the same"),
    ({"Helper Bundle indentifiter": "com.Acme.Hepler"}, "\"Helper Bundle indentifiter\" in ROOT/Host.plist is "
     "\"com.Acme.Hepler\", but the CFBundleIdentifier of HELPER Helper is \"com.Acme.Helper\": make the two the same"),
]

DICT = "<plist version=\"1.0\"><dict>%s</dict></plist>"
TEXT_MISTAKES = [
    ("<plist><dict>\n<key>a</key>\n<string>b</dict></plist>", "</dict> ends no element that is open, line 3"),
    ("<plist><dict>\n\n<key>a</key>", "it ends before </plist>, line 4"),
    ("<plist></plist>", "it holds no dictionary, line 1"),
    ("<plist><array/></plist>", "it holds no dictionary, line 1"),
    ("<plist><dict/><dict/></plist>", "<plist> holds two values, line 1"),
    ("<dict/>", "it begins with <dict> instead of <plist>, line 1"),
    ("<plist><dict/></plist><plist/>", "<plist> comes after </plist>, line 1"),
    ("<plist><dict/></plist>more", "\"more\" is outside every value, line 1"),
    ("<plist><dict/></plist></plist>", "</plist> ends no element that is open, line 1"),
    (DICT % "<key>a</key><key>b</key>", "the key \"a\" has no value, line 1"),
    (DICT % "<key>a</key>", "the key \"a\" has no value, line 1"),
    (DICT % "<string>a</string>", "a <string> has no key, line 1"),
    (DICT % "<key>a</key><array><key>b</key></array>", "a key is outside every dictionary, line 1"),
    (DICT % "<key>a</key><text>b</text>", "<text> is no element of a property list, line 1"),
    (DICT % "<key>a</key><string><b/></string>", "<b> is inside <string>, line 1"),
    (DICT % "<key>a</key>b", "\"b\" is outside every value, line 1"),
    (DICT % "<key>a</key><true>1</true>", "<true> is not empty, line 1"),
    (DICT % "<key>a</key><string>R&D</string>",
     "\"&D\" stands for no character (an \"&\" is written \"&amp;\"), line 1"),
    (DICT % "<key>a</key><string>&nbsp;</string>",
     "\"&nbsp;\" stands for no character (an \"&\" is written \"&amp;\"), line 1"),
    (DICT % "<key>a</key><string>&#0;</string>", "\"&#0;\" stands for no character, line 1"),
    (DICT % "<key>a</key><string>&#xD800;</string>", "\"&#xD800;\" stands for no character, line 1"),
    (DICT % "<key>a</key><string>1 < 2</string>", "\"<\" begins no element, line 1"),
    (DICT % "<key>a</key><string size=1>b</string>", "\"<string\" begins no element, line 1"),
    ("\ufeff" + DICT % "a", "\"a\" is outside every value, line 1"),
    (DICT % "<!-- a", "a comment does not end, line 1"),
    (DICT % "<!-- a -- b -->", "a comment contains \"--\", line 1"),
    (DICT % "<key>a</key><string><![CDATA[b</string>", "a CDATA section does not end, line 1"),
    (DICT % "<![CDATA[b]]>", "a CDATA section is outside every value, line 1"),
    ("<?xml <plist><dict/></plist>", "a processing instruction does not end, line 1"),
    ("<!DOCTYPE plist [<!ENTITY a \"b\">]>\n" + DICT % "",
     "its document type does not end, or has declarations of its own, line 1"),
]

# Each is accepted.
PLISTS = [
    plist(),
    plist(PID=1001),
    plist(Helepr_App_name=None, Helper_App_name="AcmeHelper"),
    plist(Helper_loaction_path=None, Helper_location_path="~/Acme"),
    plist(Helper_loaction_path="", Helper_location_path="~/Acme"),
    plist(List=[1, {"a": b"b"}, []], Nested={"CFBundleExecutable": "other", "d": {}}, Empty="", Flag=False, Real=1.5),
    plist(Text="[;]\\ \"quoted\" ${unset} $<1:a> ]]", CFBundleVersion="1;0[", Odd__a="]"),
    plist().replace("\n", " "),
    plist().replace("<key>PID", "<!-- <key>PID</key> & <b> -->\n<key>PID"),
    plist().replace("<string>PhotoTool<", "<string><![CDATA[Photo]]>To<!-- o -->&#111;&#x6C;<"),
    plist().replace("<string>", "<string >").replace("</string>", "</string\n>"),
    plist().replace("<key>PID</key>", "<key>&#80;I<![CDATA[D]]></key>"),
    "\ufeff" + plist(),
    plist().replace("<dict>", "<dict><key>PID</key><true/>", 1),  # the last of two values counts
    plist(CFBundleExecutable="@BUNDLE_NAME@", CFBundleVersion="@version@"),
    plist().encode("utf-16"),
    "\ufeff".encode("utf-16-be") + plist().encode("utf-16-be"),
    plistlib.dumps({"PID": "@version@\r\n\0"}, fmt=plistlib.FMT_BINARY),
    "{ CFBundleExecutable = Other; }",
]

# Both sides of a comparison are read the same way.
IDENTIFIERS = [
    ("a&amp;b&lt;&gt;&quot;&apos;", "<![CDATA[a&b<>\"']]>"),
    ("&#233;&#x20AC;&#128512;", "\u00e9\u20ac\U0001f600"),
    ("a&#38;amp;b", "a&amp;amp;b"),
    ("a;b[c", "a&#59;b&#x5b;c"),
]


class Mistakes:
    def __init__(self):
        self.root = WORK
        write(self.root / "sub/CMakeLists.txt", "add_executable(Below below.c)\n")
        write(self.root / "sub/Host.plist", plist())
        (self.root / "sub/AcmeHelper.app").mkdir()

    def output(self, commands, host=plist(), helper=HELPER_PLIST):
        """Configures a project. CMake goes on after the commands, and finds no compiler, unless they are refused."""
        write(self.root / "CMakeLists.txt", HEAD + commands + 'message(STATUS "was accepted")\n')
        for name, text in (("Host.plist", host), ("Helper.plist", helper)):
            (self.root / name).write_bytes(text if isinstance(text, bytes) else text.encode())
        output = cmake("-G", "Ninja", "-S", self.root, "-B", self.root / "build")[1]
        if "CMake Warning" in output:
            fail(output)
        return output

    def refused(self, cause, commands=HELPER + HOST, host=plist()):
        output = self.output(commands, host)
        line = "   qbdkr_add_bundle" + cause.replace("ROOT", str(self.root))
        if line not in output.splitlines():
            fail(f"expected: {line}\nis:\n{output}")
        if "was accepted" in output:
            fail(f"CMake went on after: {line}")

    def accepted(self, commands=HELPER + HOST, host=plist(), helper=HELPER_PLIST):
        output = self.output(commands, host, helper)
        if "was accepted" not in output or "qbdkr_add_bundle(H" in output:
            fail(f"refused:\n{commands}\n{host}\n{output}")
        if isinstance(host, bytes) and (self.root / "build/Host.Info.plist").read_bytes() != host:
            fail(f"a property list that is no template was changed: {host}")

    def run(self):
        for commands, cause in ARGUMENT_MISTAKES:
            self.refused(cause, commands)
        for changes, cause in KEY_MISTAKES:
            self.refused("(Host): " + cause, host=plist(**changes))
        for text, cause in TEXT_MISTAKES:
            self.refused(f"(Host): INFO ROOT/Host.plist is no property list: {cause}", host=text)
        for text in ("", " \n"):
            self.refused("(Host): INFO ROOT/Host.plist is empty: write the keys into it", host=text)
        self.refused("(Host): \"PID\" in ROOT/Host.plist is empty: give it a value, or check the variable that a "
                     "template takes it from", host=plist(PID=1001).replace("1001", " "))
        for text in PLISTS:
            self.accepted("set(version 2.0)\n" + HELPER + HOST, text)
        # The variables of the caller are not those of the function.
        self.accepted("set(BUNDLE_HELPER none)\nset(BUNDLE_RESOURCES none)\nset(key_1 none)\n" + HELPER + HOST)
        for one, other in IDENTIFIERS:
            for first, second in ((one, other), (other, one)):
                self.accepted(host=plist().replace(">com.Acme.Helper<", f">{first}<"),
                              helper=HELPER_PLIST.replace(">com.Acme.Helper<", f">{second}<"))
        self.accepted((HELPER + HOST).replace("INFO", "SELF_CONTAINED INFO"))
        unchecked = HELPER.replace("LIBRARIES", "UNCHECKED LIBRARIES")
        self.accepted(unchecked + HOST, helper=plist(CFBundleIdentifier=None))
        self.accepted(unchecked + HOST.replace("HELPER", "UNCHECKED HELPER"),
                      host=TEXT_MISTAKES[0][0], helper=plist(CFBundleIdentifier=None))


PROJECT = """cmake_minimum_required(VERSION 3.25)
project(Follows C)
include(%(module)s)
add_library(Outer SHARED IMPORTED)
set_target_properties(Outer PROPERTIES IMPORTED_LOCATION ${CMAKE_CURRENT_SOURCE_DIR}/machine/libOuter.so)
add_library(Core SHARED core.c)
target_link_libraries(Core PRIVATE Outer)
add_library(Plugin SHARED plugin.c)  # which the executables do not link
add_executable(Helper helper.c)
target_link_libraries(Helper PRIVATE Core)
add_executable(Host host.c)
target_link_libraries(Host PRIVATE Core)
add_custom_command(OUTPUT made.txt DEPENDS made.in
  COMMAND ${CMAKE_COMMAND} -E copy ${CMAKE_CURRENT_SOURCE_DIR}/made.in made.txt)
set(version %(version)s)
qbdkr_add_bundle(Helper NAME AcmeHelper DIRECTORY bundles INFO Helper.plist
  SELF_CONTAINED LIBRARIES Core RESOURCES helper.txt "helper files")
qbdkr_add_bundle(Host NAME PhotoTool DIRECTORY bundles INFO Host.plist
  SELF_CONTAINED LIBRARIES Core Plugin RESOURCES %(resources)s HELPER Helper)
add_custom_command(TARGET Host POST_BUILD
  COMMAND ${CMAKE_COMMAND} -E copy ${CMAKE_CURRENT_SOURCE_DIR}/host.c
    $<TARGET_PROPERTY:Host,QBDKR_BUNDLE_PATH>/Contents/Resources/own.txt)
"""


def tree(folder):
    """The entries below a folder: links with their target, files with their contents and whether they may be run."""
    entries = {}
    for path in sorted(folder.rglob("*")):
        name = str(path.relative_to(folder))
        if path.is_symlink():
            entries[name] = os.readlink(path)
        elif path.is_dir():
            entries[name] = "folder"
        else:
            entries[name] = (path.read_bytes(), os.access(path, os.X_OK))
    return entries


def stamps(folder):
    """The inode and the times of all entries: another build may not even have written the same again."""
    return {path: (path.lstat().st_ino, path.lstat().st_mtime_ns) for path in folder.rglob("*")}


def symbols(library):
    return subprocess.run(["nm", "-D", "--defined-only", library], check=True, stdout=subprocess.PIPE).stdout


def dynamic(file):
    return subprocess.run(["readelf", "-d", file], check=True, stdout=subprocess.PIPE, text=True).stdout


class Follows:
    def __init__(self, generator):
        self.generator = generator
        self.root = WORK
        self.build_folder = self.root / "build"
        self.bundles = self.build_folder / "bundles"
        self.resources = ['"a file.txt"', "folder/", "${CMAKE_CURRENT_BINARY_DIR}/made.txt"]
        self.version = "1.0"
        self.source("core", "int outer(void);\nconst char* core(void) { return outer() ? \"core %s\" : 0; }")
        self.machine("Inner", "int inner(void) { return 1; }")
        self.machine("Outer", "int inner(void);\nint outer(void) { return inner(); }", "Inner")
        self.source("plugin", "const char* plugin(void) { return \"plugin %s\"; }")
        for name in ("helper", "host"):
            self.source(name, "#include <stdio.h>\nconst char* core(void);\n"
                              f"int main(void) {{ return puts(\"{name} %s\") + puts(core()); }}")
        for name in ("a file.txt", "folder/one.txt", "folder/deep/two.txt", "folder/run.sh", "made.in", "helper.txt",
                     "helper files/three.txt", "other.txt"):
            write(self.root / name, name)
        (self.root / "folder/run.sh").chmod(0o755)
        (self.root / "folder/empty").mkdir()
        (self.root / "folder/links").mkdir()
        for link, target in (("link", "../one.txt"), ("folder link", "../deep"), ("dangling", "nowhere")):
            (self.root / "folder/links" / link).symlink_to(target)
        self.lists()

    def source(self, name, text, token="0"):
        write(self.root / f"{name}.c", text % token + "\n")

    def machine(self, name, text, other=None):
        """A library that no target makes, as a package of the machine brings it: with a time long past."""
        folder = self.root / "machine"
        write(folder / f"{name}.c", text)
        link = [f"-L{folder}", f"-l{other}", f"-Wl,-rpath,{folder}"] if other else []
        subprocess.run(["cc", "-shared", "-fPIC", "-o", folder / f"lib{name}.new", folder / f"{name}.c",
                        f"-Wl,-soname,lib{name}.so", *link], check=True)
        os.utime(folder / f"lib{name}.new", (1e9, 1e9))
        (folder / f"lib{name}.new").rename(folder / f"lib{name}.so")

    def lists(self):
        write(self.root / "CMakeLists.txt", PROJECT % {
            "module": MODULE, "version": self.version, "resources": " ".join(self.resources)})
        write(self.root / "Host.plist", plist(CFBundleVersion="@version@"))
        write(self.root / "Helper.plist", HELPER_PLIST)

    def build(self, *arguments):
        code, output = cmake("--build", self.build_folder, *arguments)
        if code != 0:
            fail(f"the build fails:\n{output}")
        return output

    def check(self, step, *arguments):
        """Builds, compares the bundle of the host with all inputs, and builds again."""
        self.build(*arguments)
        host = self.bundles / "PhotoTool.app/Contents"
        helper = self.bundles / "AcmeHelper.app/Contents"
        expected = {"own.txt": self.root / "host.c", "AcmeHelper.app/Contents": helper}
        for resource in self.resources:
            if resource.startswith("${"):
                expected["made.txt"] = self.root / "made.in"
            else:
                name = resource.strip('"/')
                expected[name] = self.root / name
        self.compare(step, host / "Resources", expected)
        self.compare(step, helper / "Resources", {
            "helper.txt": self.root / "helper.txt", "helper files": self.root / "helper files"})
        for contents, libraries in ((host, ("Core", "Plugin")), (helper, ("Core",))):
            self.compare_libraries(step, contents, [f"lib{name}.so" for name in libraries])
        for contents, name, information in ((host, "PhotoTool", "Host"), (helper, "AcmeHelper", "Helper")):
            text = (self.root / f"{information}.plist").read_text().replace("@version@", self.version)
            if (contents / "Info.plist").read_text() != text:
                fail(f"{step}: the Info.plist of {name} is an old one")
            token = (self.root / f"{information.lower()}.c").read_text().split('puts("')[1].split('"')[0]
            if token.encode() not in (contents / "Linux" / name).read_bytes():
                fail(f"{step}: the executable of {name} is an old one")
        before = stamps(self.bundles)
        output = self.build(*arguments)
        if stamps(self.bundles) != before:
            fail(f"{step}: a second build makes a bundle anew:\n{output}")
        if self.generator == "Ninja" and "ninja: no work to do." not in output:
            fail(f"{step}: a second build does something:\n{output}")

    def compare_libraries(self, step, contents, libraries):
        """Those of the machine differ from their copies in the run path."""
        frameworks = contents / "Frameworks"
        copied = {"libInner.so", "libOuter.so"}
        if {path.name for path in frameworks.iterdir()} != {*libraries, *copied}:
            fail(f"{step}: {frameworks} has {os.listdir(frameworks)}")
        for name in libraries:
            if (frameworks / name).read_bytes() != (self.build_folder / name).read_bytes():
                fail(f"{step}: {frameworks / name} is an old one")
        for name in copied:
            if symbols(frameworks / name) != symbols(self.root / "machine" / name):
                fail(f"{step}: {frameworks / name} is an old one")
            if "PATH" in dynamic(frameworks / name):
                fail(f"{step}: {frameworks / name} has a run path")
        program = next((contents / "Linux").iterdir())
        if "(RPATH)" not in dynamic(program) or "RUNPATH" in dynamic(program):
            fail(f"{step}: the run path of {program} is not for its libraries:\n{dynamic(program)}")

    @staticmethod
    def compare(step, folder, expected):
        found = tree(folder)
        wanted = {}
        for name, path in expected.items():
            for part in pathlib.PurePath(name).parents:
                wanted[str(part)] = "folder"
            if path.is_dir():
                wanted[name] = "folder"
                wanted.update({f"{name}/{below}": entry for below, entry in tree(path).items()})
            else:
                wanted[name] = (path.read_bytes(), os.access(path, os.X_OK))
        wanted.pop(".")
        if found != wanted:
            differing = sorted(name for name in {*found, *wanted} if found.get(name) != wanted.get(name))
            fail(f"{step}: {folder} differs from the inputs in {', '.join(differing)}")

    def change(self, name, token="1"):
        path = self.root / name
        path.write_text(path.read_text().replace(" 0", f" {token}") if name.endswith(".c") else f"{name} {token}")

    def add_key(self, name):
        path = self.root / name
        path.write_text(path.read_text().replace("<dict>", "<dict><key>New</key><true/>"))

    def retarget_link(self):
        (self.root / "folder/links/link").unlink()
        (self.root / "folder/links/link").symlink_to("../run.sh")

    def lists_with(self, **changes):
        vars(self).update(changes)
        self.lists()

    def steps(self):
        """Yields each step and its change. True stands for those that are tried with every generator."""
        for name in ("host.c", "core.c", "a file.txt", "folder/one.txt", "folder/deep/two.txt", "made.in",
                     "helper files/three.txt"):
            yield name == "host.c", f"a change of {name}", lambda: self.change(name)
        for name in ("helper.c", "plugin.c", "helper.txt"):
            yield True, f"a change of {name}", lambda: self.change(name)
        yield False, "a change of Host.plist", lambda: self.add_key("Host.plist")
        yield True, "a change of Helper.plist", lambda: self.add_key("Helper.plist")
        yield False, "a change of a variable of the template", lambda: self.lists_with(version="1.1")
        yield True, "a new folder", lambda: write(self.root / "folder/added/four.txt", "four")
        yield False, "a change in the new folder", lambda: self.change("folder/added/four.txt")
        yield False, "a new file of the helper agent", lambda: write(self.root / "helper files/five.txt", "five")
        yield False, "a change of the new file", lambda: self.change("helper files/five.txt")
        yield False, "a change of a link", self.retarget_link
        yield False, "a removed file", (self.root / "folder/one.txt").unlink
        yield True, "a removed folder", lambda: shutil.rmtree(self.root / "folder/deep")
        yield True, "an older library of the machine", lambda: self.machine(
            "Inner", "int inner(void) { return 2; }\nint of_another_version;")
        yield False, "a removed file of the helper agent", (self.root / "helper files/three.txt").unlink
        yield True, "other resources", lambda: self.lists_with(resources=["folder", "other.txt"])

    def run(self):
        code, output = cmake("-G", self.generator, "-S", self.root, "-B", self.build_folder)
        if code != 0:
            fail(output)
        self.check("the first build", "--target", "Host")
        self.check("the build of everything")
        for always, step, change in self.steps():
            if always or self.generator == "Ninja":
                change()
                self.check(step, "--target", "Host")
        library = self.root / "machine/libInner.so"
        os.truncate(library, 65 << 20)
        self.refused("a library beyond all bounds", "more than 67108864 bytes: libInner.so libOuter.so")
        library.unlink()
        self.refused("a library that is gone", "SELF_CONTAINED: this machine does not have libInner.so")
        (self.root / "other.txt").unlink()
        self.refused("a resource that is gone", "RESOURCES names other.txt, which does not exist")

    def refused(self, step, cause):
        code, output = cmake("--build", self.build_folder)
        if code == 0 or cause not in output:
            fail(f"{step}:\n{output}")


shutil.rmtree(WORK, ignore_errors=True)
WORK.mkdir(parents=True)
(Mistakes() if sys.argv[4] == "mistakes" else Follows(sys.argv[4])).run()
