// The creation sequence every public class runs in its constructor, written once.
#pragma once

#include <functional>

namespace qk {

// Steps of the creation sequence, run in this order when selected.
enum CreationStep : unsigned {
  kStepCreateRegistry = 1u << 1,    // 1: new settings store into objRegistry
  kStepReadSilent = 1u << 2,        // 2: "Debug"/"Silent" sets booSilent
  kStepReadPath = 1u << 3,          // 3: "Appl"/"Path" into strApplPath, separator appended
  kStepOpenDatabase = 1u << 4,      // 4: create the database object, Initialize "Archivi.mdb"
  kStepExtra = 1u << 5,             // 5: the class's own extra step
  kStepLoadTranslations = 1u << 6,  // 6: m_LoadTranslations
};

inline constexpr unsigned kStepsWithDatabase =
    kStepCreateRegistry | kStepReadPath | kStepOpenDatabase | kStepLoadTranslations;

// Runs the selected steps under the "Class_Initialize" trap of class_name. The translation step
// reports under translations_label (some classes report another class's name there).
void run_creation_sequence(const char* class_name, unsigned steps,
                           const std::function<void()>& extra = {},
                           const char* translations_label = nullptr);

// Step 4 alone, without a trap (the VAT and totals builders let a failure reach the caller).
void open_database();

// m_LoadTranslations: translation object, language code, collection of texts. Never throws:
// its own trap reports with the given class label.
void m_LoadTranslations(const char* class_label);

}  // namespace qk
