#pragma once
// Where this build put what the tests and benchmarks open. The paths are compiled into one small
// generated source (cmake/BuildPaths.cmake), so that no other source carries a path of this
// clone: a compiler cache then serves the same compile to every clone and every build folder.

namespace BuildPaths {

const char* sourceDir();         ///< the project's source folder
const char* sorvelProgram();     ///< the `sorvel` program
const char* sandboxProgram();    ///< the `sorvel-sandbox` program
const char* packTool();          ///< the `sorvel-pack` program
const char* pluginFile();        ///< the plug-in, sorvel.so
const char* brokenPluginFile();  ///< the plug-in built with a theme package that is not one
const char* themePackage();      ///< the plug-in's theme package as the build packs it
const char* gadgetDescription(); ///< the gadget's description, gadget.xml
const char* moduleDir();         ///< the folder of the platform modules
const char* pictureDir();        ///< where the picture tests write what they draw

} // namespace BuildPaths
