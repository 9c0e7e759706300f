// Standard input, output and error of a program.
#ifndef STANDARDFILES_H
#define STANDARDFILES_H

// Opens /dev/null for those that are closed, so that nothing else gets their numbers and what the
// program prints goes nowhere else. To be called before anything else is opened.
void OpenStandardFiles();

#endif
