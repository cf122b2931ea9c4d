'use strict';
// Writers for every file of a chart directory, for tests, the demo and users
// who need sample data.
module.exports = {
  ...require('./directory'),
  ...require('./dbf'),
  ...require('./bundle'),
};
