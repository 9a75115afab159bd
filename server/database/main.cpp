#include "createdb/driver.h"

int main(int argc, char** argv) {
  return createdb::run(argc, argv);
}
