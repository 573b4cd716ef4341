// make_index OUT.db SCRIPT.sql: creates a fresh, empty index at OUT.db and fills it by
// running the statements of SCRIPT.sql in one transaction. Used to build the bundled
// example index from its checked-in script.
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>

#include "storage/database.h"

int main(int argc, char** argv) {
  if (argc != 3) {
    std::cerr << "usage: make_index OUT.db SCRIPT.sql\n";
    return 2;
  }
  try {
    std::ifstream in(argv[2], std::ios::binary);
    if (!in) throw std::runtime_error(std::string(argv[2]) + ": cannot read");
    std::ostringstream script;
    script << in.rdbuf();
    std::filesystem::remove(argv[1]);
    quarry::Database db = quarry::create_index(argv[1]);
    db.execute("BEGIN");
    db.execute(script.str());
    db.execute("COMMIT; ANALYZE;");
  } catch (const std::exception& error) {
    std::cerr << "make_index: " << error.what() << "\n";
    std::filesystem::remove(argv[1]);
    return 1;
  }
  return 0;
}
