#include "config/Config.h"

#include <array>
#include <tuple>
#include <utility>

#include "config/Reading.h"

namespace Service::Config {

namespace {

constexpr std::array profileFields = {
   Field<Profile>{ "threshold", Presence::required,
                   []( Reading & in, Value const & value, Profile & profile ) {
                      // The 0 is never used: what does not read is a problem, and with a problem there is no Config.
                      profile.thresholdKbps = readThresholdKbps( in, value ).value_or( 0 );
                   } },
   Field<Profile>{ "sample-interval", Presence::optional,
                   []( Reading & in, Value const & value, Profile & profile ) {
                      profile.sampleIntervalSeconds =
                         readSampleInterval( in, value ).value_or( profile.sampleIntervalSeconds );
                   } },
   Field<Profile>{ "load-interval", Presence::optional,
                   []( Reading & in, Value const & value, Profile & profile ) {
                      profile.loadIntervalSeconds =
                         readWholeSeconds( in, value ).value_or( profile.loadIntervalSeconds );
                   } },
   Field<Profile>{ "shutdown", Presence::optional,
                   []( Reading & in, Value const & value, Profile & profile ) {
                      // An answer that cannot be read counts as yes, so that max-delay is not blamed for it too.
                      profile.shutdown = booleanOf( value, in.problems ).value_or( true );
                   } },
   Field<Profile>{ "max-delay", Presence::optional,
                   []( Reading & in, Value const & value, Profile & profile ) {
                      profile.maxDelaySeconds = readSeconds( in, value );
                   } },
};

void readProfile( Reading & in, Value const & value, Profile & profile ) {
   auto const given = readMapping( in, value, Mapping<Profile>{ "a profile", profileFields }, profile );
   Entry const * const maxDelay = find( given, "max-delay" );
   if( !maxDelay || profile.shutdown ) return;
   addProblem( in, maxDelay->at,
               "'max-delay' says when a link is taken down at the latest and means nothing without 'shutdown: true'" );
}

constexpr std::array groupFields = {
   Field<Group>{ "interfaces", Presence::required,
                 []( Reading & in, Value const & value, Group & group ) {
                    group.interfaces = readNames( in, value, checkInterfaceName );
                 } },
   Field<Group>{ "profile", Presence::optional,
                 []( Reading & in, Value const & value, Group & group ) {
                    group.profile = readName( in, value, checkProfileReference );
                 } },
};

void readGroup( Reading & in, Value const & value, Group & group ) {
   readMapping( in, value, Mapping<Group>{ "a group", groupFields }, group );
}

constexpr std::array unitFields = {
   Field<Unit>{ "groups", Presence::required,
                []( Reading & in, Value const & value, Unit & unit ) {
                   unit.groups = readNames( in, value, checkGroupReference );
                   // Empty as written. A list of which no name could be read is empty too, but each of its names is a
                   // problem already.
                   bool const emptyList = value.node.IsSequence() && value.node.size() == 0;
                   if( emptyList ) addProblem( in, value.at, "a unit needs at least one group" );
                } },
};

void readUnit( Reading & in, Value const & value, Unit & unit ) {
   readMapping( in, value, Mapping<Unit>{ "a unit", unitFields }, unit );
}

// A section of named entries. Returns the names, also those of entries that do not hold, so that references to these
// are not reported as well; none where the section is no mapping at all.
template<typename T>
std::optional<Names> readNamed( Reading & in, Value const & section, NameCheck check,
                                void ( *read )( Reading &, Value const &, T & ), std::vector<T> & into ) {
   auto const entries = entriesOf( section, in.problems );
   if( !entries ) return std::nullopt;
   Names names;
   for( Entry const & entry : *entries ) {
      check( in, entry.at, entry.key );
      T & named = into.emplace_back();
      named.name = entry.key;
      read( in, entry.value, named );
      names.push_back( entry.key );
   }
   return names;
}

void readStageName( Reading & in, Value const & value, Stage & stage ) {
   stage.name = readName( in, value, checkStageName );
}

void readRun( Reading & in, Value const & value, Stage & stage ) {
   auto const items = itemsOf( value, in.problems );
   if( !items ) return;
   for( Value const & item : *items ) {
      auto const argument = textOf( item, in.problems ).value_or( "" );
      // A program's arguments end at the first such byte (execve(2)), so the rest would be lost.
      if( argument.find( '\0' ) != std::string::npos ) addProblem( in, item.at, "an argument must not contain '\\0'" );
      stage.run.push_back( argument );
   }
   bool const hasProgram = !stage.run.empty() && !stage.run.front().empty();
   if( !hasProgram ) addProblem( in, value.at, "'run' must begin with the program to run" );
}

struct OnTimeoutChoice {
   std::string_view word;
   OnTimeout meaning;
};
constexpr std::array onTimeoutChoices = { OnTimeoutChoice{ "rollback", OnTimeout::rollback },
                                          OnTimeoutChoice{ "continue", OnTimeout::proceed },
                                          OnTimeoutChoice{ "hold", OnTimeout::hold } };

void readOnTimeout( Reading & in, Value const & value, Stage & stage ) {
   auto const text = textOf( value, in.problems );
   if( !text ) return;
   auto const choice = std::ranges::find( onTimeoutChoices, *text, &OnTimeoutChoice::word );
   if( choice != onTimeoutChoices.end() ) {
      stage.onTimeout = choice->meaning;
      return;
   }
   addProblem( in, value.at, "'" + *text + "' must be rollback, continue or hold" );
}

constexpr std::array stageFields = {
   Field<Stage>{ "name", Presence::required, readStageName },
   Field<Stage>{ "run", Presence::optional, readRun },
   Field<Stage>{ "timeout", Presence::optional,
                 []( Reading & in, Value const & value, Stage & stage ) {
                    stage.timeoutSeconds = readSecondsAboveZero( in, value );
                 } },
   Field<Stage>{ "on-timeout", Presence::optional, readOnTimeout },
};

// The two stage lists differ in their rules.
enum class Direction { in, out };

void checkOnTimeout( Reading & in, std::vector<Entry> const & given, Direction direction ) {
   Entry const * const onTimeout = find( given, "on-timeout" );
   if( !onTimeout ) return;
   // A program may fail as well as be late.
   if( !find( given, "timeout" ) && !find( given, "run" ) ) {
      addProblem( in, onTimeout->at, "'on-timeout' means nothing without 'timeout'" );
   }
   bool const rollsBack = onTimeout->value.node.IsScalar() && onTimeout->value.node.Scalar() == "rollback";
   if( direction == Direction::in || !rollsBack ) return;
   addProblem( in, onTimeout->value.at,
               "on the way out there is nothing to roll back to; it must be continue or hold" );
}

void checkRun( Reading & in, Value const & value, std::vector<Entry> const & given, Stage const & stage ) {
   Entry const * const run = find( given, "run" );
   bool const isBuiltIn = stage.name == rateMonStage || stage.name == verifyStage;
   if( isBuiltIn && run ) {
      addProblem( in, run->at, "the stage '" + stage.name + "' is the service's own and runs no program" );
   }
   if( !isBuiltIn && !run ) addProblem( in, value.owner, "the stage '" + stage.name + "' needs 'run'" );
}

[[nodiscard]] Stage readStage( Reading & in, Value const & value, Direction direction ) {
   Stage stage;
   if( direction == Direction::out ) stage.onTimeout = OnTimeout::hold;
   auto const given = readMapping( in, value, Mapping<Stage>{ "a stage", stageFields }, stage );
   checkOnTimeout( in, given, direction );
   // Reported already where there is none. Whether it needs a program cannot be said without its name.
   if( !stage.name.empty() ) checkRun( in, value, given, stage );
   return stage;
}

// The built-in stages: which there must be, in which order, and which there must not be.
void checkBuiltIns( Reading & in, Position at, std::vector<Stage> const & stages, Direction direction ) {
   auto const rateMon = std::ranges::find( stages, rateMonStage, &Stage::name );
   if( rateMon == stages.end() ) addProblem( in, at, "the list lacks the stage 'ratemon'" );
   if( direction == Direction::out ) return;
   // Where there is no 'ratemon', any place is after it: that is a problem of its own.
   auto const after = rateMon == stages.end() ? stages.begin() : rateMon;
   bool const verified = std::ranges::find( after, stages.end(), verifyStage, &Stage::name ) != stages.end();
   if( verified ) return;
   addProblem( in, at,
               "the list lacks the stage 'verify' after 'ratemon': without it the unit would count as in maintenance "
               "though traffic may have come back on a link that was found drained earlier" );
}

void readStageList( Reading & in, Value const & value, std::vector<Stage> & stages, Direction direction ) {
   auto const items = itemsOf( value, in.problems );
   if( !items ) return;
   // The list in the file takes the place of the default, which stands here until then.
   stages.clear();
   for( Value const & item : *items ) {
      // A stage is an element of a list: what it lacks is reported at the element itself, not at the list.
      Stage const stage = readStage( in, { item.node, item.at, item.at }, direction );
      // Two stages whose names could not be read are no repetition.
      bool const repeated = std::ranges::find( stages, stage.name, &Stage::name ) != stages.end();
      if( repeated && !stage.name.empty() ) {
         addProblem( in, item.at, "the stage '" + stage.name + "' is in this list twice" );
      }
      if( direction == Direction::out && stage.name == verifyStage ) {
         addProblem( in, item.at,
                     "the stage 'verify' waits until the unit is quiet; on the way out traffic is meant to come back" );
      }
      stages.push_back( stage );
   }
   checkBuiltIns( in, value.at, stages, direction );
}

constexpr std::array stagesFields = {
   Field<Stages>{ "maintEnter", Presence::optional,
                  []( Reading & in, Value const & value, Stages & stages ) {
                     readStageList( in, value, stages.maintEnter, Direction::in );
                  } },
   Field<Stages>{ "maintExit", Presence::optional,
                  []( Reading & in, Value const & value, Stages & stages ) {
                     readStageList( in, value, stages.maintExit, Direction::out );
                  } },
};

// The tables are read from top to bottom, so what is referred to comes before what refers to it.
constexpr std::array fileFields = {
   Field<Config>{ "profiles", Presence::required,
                  []( Reading & in, Value const & value, Config & config ) {
                     in.profileNames = readNamed( in, value, checkProfileName, readProfile, config.profiles );
                  } },
   Field<Config>{ "default-profile", Presence::required,
                  []( Reading & in, Value const & value, Config & config ) {
                     config.defaultProfile = readName( in, value, checkProfileReference );
                  } },
   Field<Config>{ "groups", Presence::required,
                  []( Reading & in, Value const & value, Config & config ) {
                     in.groupNames = readNamed( in, value, checkGroupName, readGroup, config.groups );
                  } },
   Field<Config>{ "units", Presence::required,
                  []( Reading & in, Value const & value, Config & config ) {
                     readNamed( in, value, checkUnitName, readUnit, config.units );
                  } },
   Field<Config>{ "stages", Presence::optional,
                  []( Reading & in, Value const & value, Config & config ) {
                     readMapping( in, value, Mapping<Stages>{ "'stages'", stagesFields }, config.stages );
                  } },
   Field<Config>{ "preserve-ipv6", Presence::optional,
                  []( Reading & in, Value const & value, Config & config ) {
                     config.preserveIpv6 = booleanOf( value, in.problems ).value_or( false );
                  } },
};

[[nodiscard]] Stages defaultStages() {
   constexpr double minute = 60;
   return { { { std::string( rateMonStage ), {}, 30 * minute, OnTimeout::rollback },
              { std::string( verifyStage ), {}, 10 * minute, OnTimeout::hold } },
            { { std::string( rateMonStage ), {}, std::nullopt, OnTimeout::hold } } };
}

void readFile( Reading & in, std::string const & text ) {
   // Before the file is read: only a list that it gives is replaced.
   in.config.stages = defaultStages();
   try {
      Value const document = documentOf( text, in.problems );
      readMapping( in, document, Mapping<Config>{ "the file", fileFields }, in.config );
   } catch( YAML::Exception const & error ) {
      addSyntaxProblem( in.problems, error, text );
   }
}

// Found in the order of the tables; told in the order in which a person goes through the file.
[[nodiscard]] std::vector<Problem> inOrder( std::vector<Problem> problems ) {
   std::ranges::stable_sort( problems, {}, []( Problem const & p ) { return std::tie( p.line, p.column ); } );
   return problems;
}

[[nodiscard]] std::string joined( std::string const & fileName, std::vector<Problem> const & problems ) {
   std::string lines;
   for( Problem const & problem : problems ) {
      if( !lines.empty() ) lines += '\n';
      lines +=
         fileName + ':' + std::to_string( problem.line ) + ':' + std::to_string( problem.column ) + ": " + problem.text;
   }
   return lines;
}

}  // namespace

ConfigError::ConfigError( std::string const & fileName, std::vector<Problem> problems )
   : std::runtime_error( joined( fileName, inOrder( problems ) ) ), problems_( inOrder( std::move( problems ) ) ) {}

Config parse( std::string_view text, std::string const & fileName ) {
   Reading in;
   readFile( in, std::string( text ) );
   if( in.problems.empty() ) return std::move( in.config );
   throw ConfigError( fileName, std::move( in.problems ) );
}

}  // namespace Service::Config
