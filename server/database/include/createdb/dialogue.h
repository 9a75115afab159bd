// The interactive configuration in two halves, and what is shown before anything is created. Everything is
// printed on standard output.

#pragma once

#include "createdb/console.h"

namespace createdb {

// Ask for the settings of one database until every answer can be used. End the run when nothing more can
// be read.
void ask_mdb_questions(AnswerReader& answers);
void ask_tsdb_questions(AnswerReader& answers);

// REQUIRES: the settings are filled, and journal_size still counts bytes.
void print_mdb_summary();
void print_tsdb_summary();

// Whether the summaries are confirmed; without a question read when the settings say `force`. No answer is
// a no.
bool confirm(AnswerReader& answers);

}  // namespace createdb
